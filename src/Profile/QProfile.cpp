#include <zrn/Profile/QProfile.h>
#include <zrn/System/CoreSystem.h>

#include "Platform/Platform.h"
#include "System/AnnotatedMutex.h"

#include <boost/date_time/c_time.hpp>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>
#include <mutex>
#include <string>
#include <vector>

namespace {

constexpr long long kNoRun = std::numeric_limits<long long>::max();
constexpr long kTruncateAt = 102400;
constexpr int kNameColumn = 50;
constexpr std::size_t kMaxCheckpoints = 1024;
constexpr double kBytesToMiB = 9.5367431640625e-7;
QProfile* const kSeveralCallers = reinterpret_cast<QProfile*>(1);

constexpr char kRule[] = "------------------------------------------------------\r\n";

// Set before any dynamic initialisation, so the root finds it ready.
QProfile* g_pHead = nullptr;

// The innermost live starter of each thread. The default TLS model: one
// initial-exec variable would put the library's whole thread storage (the
// error message buffer included) into the static TLS reserve, which is too
// small for it when the library is loaded with dlopen (a plugin host, a
// Python import).
thread_local QProfileStarter* t_pCurrentStarter = nullptr;

std::atomic<bool> g_bSummaryWritten{false};
std::atomic<bool> g_bStartersDisabled{false};
bool g_bHeadingPending = true;
long long g_nProgramTotal = 0;
long long g_nFrequency = 0;
std::FILE* g_pReportFile = nullptr;

struct Checkpoint {
  char const* label;
  double mebibytes;
};

struct CheckpointTable {
  zrn::detail::CAnnotatedMutex<std::mutex> mutex;
  std::size_t count ZRN_GUARDED_BY(mutex) = 0;
  Checkpoint entries[kMaxCheckpoints] ZRN_GUARDED_BY(mutex);
};

CheckpointTable& Checkpoints() {
  static CheckpointTable table;
  return table;
}

long long Now() {
  std::int64_t counter = 0;
  zrn::platform::ReadPerformanceCounter(counter);
  return counter;
}

char const* Text(char const* text) { return text ? text : ""; }

// The summary's file beside the executable: emptied when it has grown to
// 100 KiB, appended to otherwise.
std::FILE* OpenReportFile() {
  std::string path = zrn::platform::ExecutablePath();
  path.erase(path.rfind('/') + 1);
  path += "QProfile.txt";
  std::FILE* file = std::fopen(path.c_str(), "ab");
  if (!file || std::fseek(file, 0, SEEK_END) != 0 || std::ftell(file) < kTruncateAt)
    return file;
  std::fclose(file);
  return std::fopen(path.c_str(), "wb");
}

std::tm LocalTimeNow() {
  std::tm fields{};
  const std::time_t now = std::time(nullptr);
  try {
    boost::date_time::c_time::localtime(&now, &fields);
  } catch (std::exception const&) {
    fields = std::tm{}; // a summary at exit must not throw
  }
  return fields;
}

// A piece of text formatted into a buffer, cut to its size.
__attribute__((format(printf, 1, 2))) std::string Format(char const* format, ...) {
  char buffer[512]; // holds any double in these forms
  std::va_list args;
  va_start(args, format);
  const int n = std::vsnprintf(buffer, sizeof(buffer), format, args);
  va_end(args);
  return std::string(buffer, n < 0 ? 0 : std::min<std::size_t>(n, sizeof(buffer) - 1));
}

} // namespace

QProfile QProfile::s_root{QProfile::RootTag{}};

void GetCPUFreq(long long& frequency) {
  std::int64_t f = 0;
  frequency = zrn::platform::ReadPerformanceFrequency(f) ? f : 0;
}

QProfile::QProfile(RootTag) : QProfile("Total time", false, "", 0) {}

QProfile::QProfile(char const* regionName, bool isOwned, char const* sourceFile, int sourceLine)
    : owned(isOwned), totalTicks(0), childTicks(0), startTick(0), maxTicks(0), minTicks(kNoRun),
      hits(0), next(g_pHead), runDepth(0), starterDepth(0), caller(nullptr), printed(false),
      file(sourceFile), line(sourceLine), name(regionName) {
  g_pHead = this;
  QProfile& root = this == &s_root ? *this : s_root;
  if (!root.IsRunning()) {
    root.runDepth = 1;
    root.startTick = Now();
  }
}

QProfile::~QProfile() {
  // After the summary the list may hold released profiles: it is not read.
  if (!g_bSummaryWritten.load() && g_pHead && g_pHead->next)
    Summarise(this);
}

QProfile& QProfile::operator=(QProfile const& other) {
  owned = other.owned;
  totalTicks = other.totalTicks;
  childTicks = other.childTicks;
  startTick = other.startTick;
  maxTicks = other.maxTicks;
  minTicks = other.minTicks;
  hits = other.hits;
  runDepth = other.runDepth;
  starterDepth = other.starterDepth;
  caller = other.caller;
  printed = other.printed;
  file = other.file;
  line = other.line;
  name = other.name;
  return *this;
}

void QProfile::Start() {
  if (runDepth == 0)
    startTick = Now();
  ++runDepth;
}

void QProfile::Stop() {
  if (runDepth == 0)
    return;
  ++hits;
  if (--runDepth == 0)
    totalTicks += Now() - startTick;
}

bool QProfile::IsRunning() const { return runDepth != 0; }

void QProfile::Reset() {
  totalTicks = 0;
  startTick = 0;
  hits = 0;
  runDepth = 0;
  maxTicks = 0;
  minTicks = kNoRun;
}

void QProfile::Add(long long const& ticks, long long const& children) {
  totalTicks += ticks;
  ++hits;
  childTicks += children;
}

double QProfile::ElapsedInMS() const {
  return static_cast<double>(totalTicks) / static_cast<double>(g_nFrequency) * 1000.0;
}

void QProfile::Out(char const* text, bool closeAfter, char const*) {
  std::fputs(text, stdout);
  if (closeAfter) {
    std::fputs("\r\n", stdout);
    std::fflush(stdout);
  }
  if (!g_pReportFile)
    g_pReportFile = OpenReportFile();
  if (g_pReportFile)
    std::fputs(text, g_pReportFile);
  if (closeAfter && g_pReportFile) {
    std::fclose(g_pReportFile);
    g_pReportFile = nullptr;
  }
}

void QProfile::PrintSummary() { Summarise(nullptr); }

void QProfile::Summarise(QProfile const* dying) {
  if (g_bSummaryWritten.exchange(true))
    return;
  g_bStartersDisabled.store(true, std::memory_order_relaxed);
  s_root.Stop();
  GetCPUFreq(g_nFrequency);
  g_nProgramTotal = s_root.totalTicks;

  Out("\r\n----------------- Profiling  results -----------------\r\n", false, nullptr);
  const std::tm now = LocalTimeNow();
  Out(Format("Date: %02d.%02d.%02d, Time: %02d:%02d.%02d\r\n", now.tm_mday, now.tm_mon + 1,
             now.tm_year + 1900, now.tm_hour, now.tm_min, now.tm_sec)
          .c_str(),
      false, nullptr);

  // The list is newest first: its reverse is the order of creation.
  std::vector<QProfile*> profiles;
  for (QProfile* p = g_pHead; p; p = p->next)
    profiles.push_back(p);
  for (auto p = profiles.rbegin(); p != profiles.rend(); ++p)
    (*p)->PrintReport(0);
  // Released profiles stay linked: nothing walks the list after the summary.
  for (QProfile* p : profiles)
    if (p->owned && p != dying)
      delete p;

  PrintMemorySummary();
  Out(kRule, true, nullptr);
}

void QProfile::PrintReport(int indent) {
  if (printed)
    return;
  printed = true;
  if (g_bHeadingPending) {
    g_bHeadingPending = false;
    Out(kRule, false, nullptr);
    for (char const* cell : {"|-Child|Total ", "|  Hits  ", "|Time/call ", "|   MIN   |   MAX   ",
                             "| Function    \r\n"})
      Out(cell, false, nullptr);
    Out(kRule, false, nullptr);
  }
  const auto total = static_cast<double>(g_nProgramTotal);
  const double self = static_cast<double>(totalTicks - childTicks) / total * 100.0;
  const double whole = static_cast<double>(totalTicks) / total * 100.0;
  const double perSecond = static_cast<double>(g_nFrequency);
  std::string row =
      self != whole ? Format("|%6.2lf|%6.2lf", self, whole) : Format("|%6.2lf|      ", self);
  row += Format("|%8lld", hits);
  // A region that never completed a run shows 0 per call.
  row += Format("|%12.5lf", hits ? ElapsedInMS() / static_cast<double>(hits) : 0.0);
  const long long shortest = minTicks == kNoRun ? 0 : minTicks;
  row += Format("|%9.3lf|%9.3lf|", static_cast<double>(shortest) / perSecond * 1000.0,
                static_cast<double>(maxTicks) / perSecond * 1000.0);
  row.append(2 * static_cast<std::size_t>(std::max(indent, 0)), ' ').append(Text(name));
  row.append(static_cast<std::size_t>(
                 std::max(0, kNameColumn - static_cast<int>(std::strlen(Text(name))))),
             '-');
  if (caller && caller != kSeveralCallers) {
    const double share =
        static_cast<double>(totalTicks) / static_cast<double>(caller->totalTicks) * 100.0;
    row += Format("|%3.1lf%% of ", share) + Text(caller->name);
  }
  row += "\r\n";
  Out(row.c_str(), false, nullptr);
}

void QProfile::PrintMemorySummary() {
  CheckpointTable& table = Checkpoints();
  zrn::detail::CScopedLock lock(table.mutex);
  if (table.count == 0)
    return;
  Out("----------------- memory  status -----------------\r\n", false, nullptr);
  Out("|used/M|Inc/M | time Tag ---------------------------------\r\n", false, nullptr);
  double previous = 0.0;
  for (std::size_t i = 0; i < table.count; ++i) {
    Checkpoint const& entry = table.entries[i];
    const std::string row =
        Format("|%6.2lf|%6.2lf| ", entry.mebibytes, entry.mebibytes - previous) +
        Text(entry.label) + "\r\n";
    Out(row.c_str(), false, nullptr);
    previous = entry.mebibytes;
  }
}

// --- QProfileStarter ---------------------------------------------------------

QProfileStarter::QProfileStarter(QProfile* region)
    : profile(region), previous(t_pCurrentStarter), startTick(0), childTicks(0) {
  t_pCurrentStarter = this;
  ++profile->starterDepth;
  startTick = Now();
}

QProfileStarter* QProfileStarter::RecursiveCallFrom() {
  for (QProfileStarter* s = previous; s; s = s->previous)
    if (s->profile == profile)
      return s;
  return nullptr;
}

QProfileStarter::~QProfileStarter() {
  // The chain is kept even after the summary, so that later starters of this
  // thread never see a dead predecessor as their own.
  t_pCurrentStarter = previous;
  if (g_bStartersDisabled.load(std::memory_order_relaxed))
    return;
  const long long t = Now() - startTick;
  const bool recursive = --profile->starterDepth > 0;
  profile->maxTicks = std::max(profile->maxTicks, t);
  profile->minTicks = std::min(profile->minTicks, t);
  if (!previous) {
    profile->Add(t, childTicks);
    return;
  }
  if (!profile->caller)
    profile->caller = previous->profile;
  else if (profile->caller != previous->profile)
    profile->caller = kSeveralCallers;
  // A recursive run adds nothing to the total: the outermost run covers it.
  // (A run of the same region on another thread is not recursive here.)
  if (QProfileStarter* outer = recursive ? RecursiveCallFrom() : nullptr) {
    ++profile->hits;
    if (outer == previous) {
      previous->childTicks += childTicks;
    } else {
      previous->childTicks += t;
      outer->childTicks += childTicks - t;
    }
    return;
  }
  profile->Add(t, childTicks);
  previous->childTicks += t;
}

// --- Memory checkpoints ------------------------------------------------------

int QPAddMemoryStatus(char const* label) {
  CheckpointTable& table = Checkpoints();
  zrn::detail::CScopedLock lock(table.mutex);
  if (table.count == kMaxCheckpoints)
    return 0;
  zrn::sProcessMemoryCounters counters;
  zrn::ReadProcessMemoryCounters(counters);
  table.entries[table.count++] = {label, static_cast<double>(counters.PagefileUsage) * kBytesToMiB};
  return 1;
}

namespace {

Checkpoint const* FindCheckpoint(CheckpointTable& table, char const* label)
    ZRN_REQUIRES(table.mutex) {
  for (std::size_t i = 0; i < table.count; ++i)
    if (std::strcmp(Text(table.entries[i].label), Text(label)) == 0)
      return &table.entries[i];
  return nullptr;
}

} // namespace

double QPMemoryDiffent(char const* a, char const* b) {
  CheckpointTable& table = Checkpoints();
  zrn::detail::CScopedLock lock(table.mutex);
  Checkpoint const* first = FindCheckpoint(table, a);
  Checkpoint const* second = FindCheckpoint(table, b);
  return first && second ? first->mebibytes - second->mebibytes : 0.0;
}
