#include <zrn/Profile/Profiler.h>
#include <zrn/System/CoreSystem.h>
#include <zrn/System/Stopwatch.h>

#include "System/AnnotatedMutex.h"
#include "System/PathText.h"
#include "System/TextCells.h"
#include "Text/Utf8.h"

#include <boost/thread/locks.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <boost/thread/thread.hpp>

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cstdio>
#include <sstream>
#include <utility>

namespace zrn {

template class CSingleton<CProfileManager>;

namespace {

constexpr std::uint64_t kNoCompletion = 100000000;
constexpr double kEpsilon = 2.220446049250313e-16;
constexpr std::size_t kTableWidth = 140;

std::atomic<ProfileClock> g_pClock{nullptr};

std::int64_t Now() {
  const ProfileClock clock = g_pClock.load(std::memory_order_relaxed);
  return static_cast<std::int32_t>(clock ? clock() : CStopwatch::GetTickCount());
}

// Recursive: writing all threads' tables to a file takes it again.
using ProfileMutex = detail::CAnnotatedMutex<boost::recursive_mutex>;

// Never destroyed: a manager with static storage made before the first lock
// is destroyed after it, and its destructor still locks.
ProfileMutex& ProfileLock() {
  static ProfileMutex* const mutex = new ProfileMutex;
  return *mutex;
}

using ProfileGuard = detail::CScopedLock<ProfileMutex>;

double Ratio(std::uint64_t part, std::uint64_t whole) {
  const auto divisor = static_cast<double>(whole);
  return divisor <= kEpsilon ? 1.0 : static_cast<double>(part) / divisor;
}

std::wstring Percent(double share) {
  return std::to_wstring(static_cast<long long>(share * 100.0));
}

// Appends `text` to the file at `path` in UTF-8; false when the file cannot be
// opened or the text not written whole.
bool AppendToFile(std::wstring const& path, std::wstring const& text) {
  std::FILE* file = std::fopen(detail::ToSystemPath(path).c_str(), "a");
  if (!file)
    return false;
  const std::string bytes = detail::ToUtf8(text);
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  return std::fclose(file) == 0 && written;
}

} // namespace

ProfileClock SetProfileClock(ProfileClock clock) {
  return g_pClock.exchange(clock, std::memory_order_relaxed);
}

// --- CProfileInstance --------------------------------------------------------

CProfileInstance::CProfileInstance() : CProfileInstance(nullptr, {}, 0, 0) {}

CProfileInstance::CProfileInstance(CProfileInstance* parentNode, std::wstring_view nodeName,
                                   std::uint64_t frame, std::uint32_t nodeDepth)
    : parent(parentNode), name(nodeName), frameId(frame), depth(nodeDepth), startTime(0),
      endTime(0), frameTime(0), frameCalls(0), frameRatio(1.0), lastFrameTime(0), maxTime(0),
      minTime(kNoCompletion), lastFrameCalls(0), totalRatio(1.0), totalTime(0), totalCalls(0),
      inFrame(false) {}

CProfileInstance::CProfileInstance(CProfileInstance const& other) : parent(other.parent) {
  CopyCountersFrom(other);
  CopySubtreeFrom(other);
}

CProfileInstance& CProfileInstance::operator=(CProfileInstance const& other) {
  if (this == &other)
    return *this;
  CProfileInstance copy(other); // other may lie inside this subtree
  DeleteSubtree();
  parent = other.parent;
  CopyCountersFrom(copy);
  children = std::move(copy.children);
  copy.children.clear();
  for (CProfileInstance* child : children)
    child->parent = this;
  return *this;
}

CProfileInstance::~CProfileInstance() { DeleteSubtree(); }

void CProfileInstance::CopyCountersFrom(CProfileInstance const& other) {
  name = other.name;
  frameId = other.frameId;
  depth = other.depth;
  startTime = other.startTime;
  endTime = other.endTime;
  frameTime = other.frameTime;
  frameCalls = other.frameCalls;
  frameRatio = other.frameRatio;
  lastFrameTime = other.lastFrameTime;
  maxTime = other.maxTime;
  minTime = other.minTime;
  lastFrameCalls = other.lastFrameCalls;
  totalRatio = other.totalRatio;
  totalTime = other.totalTime;
  totalCalls = other.totalCalls;
  inFrame = other.inFrame;
}

// Without recursion: the depth of a tree is the nesting of the host's code.
void CProfileInstance::CopySubtreeFrom(CProfileInstance const& other) {
  std::vector<std::pair<CProfileInstance const*, CProfileInstance*>> pending{{&other, this}};
  while (!pending.empty()) {
    auto [from, to] = pending.back();
    pending.pop_back();
    to->children.reserve(from->children.size());
    for (CProfileInstance const* child : from->children) {
      auto* copy = new CProfileInstance(to, {}, 0, 0);
      copy->CopyCountersFrom(*child);
      to->children.push_back(copy);
      pending.emplace_back(child, copy);
    }
  }
}

void CProfileInstance::DeleteSubtree() {
  std::vector<CProfileInstance*> pending = std::move(children);
  children.clear();
  while (!pending.empty()) {
    CProfileInstance* node = pending.back();
    pending.pop_back();
    pending.insert(pending.end(), node->children.begin(), node->children.end());
    node->children.clear();
    delete node;
  }
}

CProfileInstance* CProfileInstance::FindChild(std::wstring const& childName) const {
  return FindChildView(childName);
}

CProfileInstance* CProfileInstance::FindChildView(std::wstring_view childName) const {
  for (CProfileInstance* child : children)
    if (child->name == childName)
      return child;
  return nullptr;
}

void CProfileInstance::AddChild(CProfileInstance* child) { children.push_back(child); }

void CProfileInstance::BeginFrame(std::uint64_t frame) {
  frameId = frame;
  inFrame = true;
  frameCalls = 0;
  frameTime = 0;
}

void CProfileInstance::EndFrame(std::uint64_t elapsed) {
  frameTime += elapsed;
  frameCalls += 1;
  maxTime = std::max(maxTime, elapsed);
  minTime = std::min(minTime, elapsed);
  inFrame = false;
}

// --- CProfiler ---------------------------------------------------------------

CProfiler::CProfiler() : current(&root), resetRequested(false), frameCounter(0), statsValid(false) {
  ForceReset();
}

CProfiler::CProfiler(CProfiler const& other)
    : current(&root), root(other.root), resetRequested(other.resetRequested),
      frameCounter(other.frameCounter), titles(other.titles), values(other.values),
      statsValid(other.statsValid) {
  // The open section of the copy is the node at the same place.
  std::vector<std::size_t> path;
  for (CProfileInstance const* node = other.current; node->parent; node = node->parent) {
    auto const& siblings = node->parent->children;
    path.push_back(static_cast<std::size_t>(std::find(siblings.begin(), siblings.end(), node) -
                                            siblings.begin()));
  }
  for (auto at = path.rbegin(); at != path.rend(); ++at)
    current = current->children[*at];
}

CProfiler& CProfiler::operator=(CProfiler const& other) {
  if (this != &other) {
    CProfiler copy(other);
    std::swap(root.children, copy.root.children);
    for (CProfileInstance* child : root.children)
      child->parent = &root;
    root.CopyCountersFrom(copy.root);
    current = copy.current == &copy.root ? &root : copy.current;
    resetRequested = copy.resetRequested;
    frameCounter = copy.frameCounter;
    titles = std::move(copy.titles);
    values = std::move(copy.values);
    statsValid = copy.statsValid;
  }
  return *this;
}

CProfiler::~CProfiler() { ForceReset(); }

void CProfiler::BeginProfile(std::wstring const& name) { Open(name); }

void CProfiler::BeginProfile(wchar_t const* name) {
  Open(name ? std::wstring_view(name) : std::wstring_view());
}

void CProfiler::Open(std::wstring_view name) {
  if (current == &root) {
    ++frameCounter;
    statsValid = false;
  }
  CProfileInstance* node = current->FindChildView(name);
  if (!node) {
    node = new CProfileInstance(current, name, frameCounter, current->depth + 1);
    current->AddChild(node);
  } else if (node->frameId != frameCounter) {
    node->BeginFrame(frameCounter);
  }
  current = node;
  node->startTime = Now();
}

void CProfiler::EndProfile(std::wstring const&) {
  if (current == &root)
    return; // nothing open: keep the profiler usable
  CProfileInstance* closed = current;
  closed->endTime = Now();
  closed->EndFrame(static_cast<std::uint64_t>(closed->endTime - closed->startTime));
  current = closed->parent;
  if (current != &root)
    return;
  ProcessFrameStats(closed);
  ResetFrameData(closed);
  if (resetRequested)
    ForceReset();
}

void CProfiler::ResetProfile() {
  if (current == &root)
    ForceReset();
  else
    resetRequested = true;
}

void CProfiler::ForceReset() {
  current = &root;
  root.DeleteSubtree();
  statsValid = false;
  resetRequested = false;
  frameCounter = 0;
}

// Pre-order (a node, then its children in creation order), without recursion.
template <class Visit>
void CProfiler::WalkSubtree(CProfileInstance* top, std::vector<CProfileInstance*>& stack,
                            Visit visit) {
  stack.clear();
  stack.push_back(top);
  while (!stack.empty()) {
    CProfileInstance* node = stack.back();
    stack.pop_back();
    visit(node);
    stack.insert(stack.end(), node->children.rbegin(), node->children.rend());
  }
}

void CProfiler::ResetFrameData(CProfileInstance* node) {
  WalkSubtree(node, m_vecWalk, [](CProfileInstance* n) {
    n->frameTime = 0;
    n->frameCalls = 0;
  });
}

void CProfiler::ProcessFrameStats(CProfileInstance* node) {
  // A parent is visited before its children, so its totals include the frame.
  WalkSubtree(node, m_vecWalk, [this](CProfileInstance* n) {
    n->lastFrameTime = n->frameTime;
    n->totalTime += n->frameTime;
    n->totalCalls += n->frameCalls;
    n->lastFrameCalls = n->frameCalls;
    if (n->parent != &root) {
      n->frameRatio = Ratio(n->frameTime, n->parent->frameTime);
      n->totalRatio = Ratio(n->totalTime, n->parent->totalTime);
    }
  });
}

void CProfiler::ProcessFrameStats() {
  for (CProfileInstance* top : root.children)
    ProcessFrameStats(top);
}

void CProfiler::UpdateStatistic() {
  titles = L"Time Profile:";
  values.clear();
  for (CProfileInstance* top : root.children) {
    WalkSubtree(top, m_vecWalk, [this](CProfileInstance* n) {
      titles.append(L"\n").append(2 * (n->depth - 1), L' ').append(n->name);
      titles.append(L"(").append(std::to_wstring(n->lastFrameCalls)).append(L")");
      values.append(L"\n").append(detail::TwoDecimals(static_cast<double>(n->lastFrameTime)));
      values.append(L"ms");
      if (n->depth > 1)
        values.append(L"-").append(Percent(n->frameRatio)).append(L"%");
    });
  }
  statsValid = true;
}

std::wstring const& CProfiler::GetTitlesStr() {
  if (!statsValid)
    UpdateStatistic();
  return titles;
}

std::wstring const& CProfiler::GetValueStr() {
  if (!statsValid)
    UpdateStatistic();
  return values;
}

CProfileInstance const* CProfiler::GetRootInstance() const { return &root; }

namespace {

struct Column {
  wchar_t const* heading;
  std::size_t width;
};

constexpr Column kColumns[] = {{L"NAME", 40}, {L"AVG", 8},       {L"MIN", 6},    {L"MAX", 6},
                               {L"TOTAL", 8}, {L"HIT", 6},       {L"AVG_RT", 8}, {L"PRNT%", 5},
                               {L"ROOT%", 5}, {L"HIERARCHY", 20}};

std::wstring HeadingRow() {
  std::wstring row;
  for (Column const& column : kColumns) {
    if (!row.empty())
      row += L'|';
    row += detail::CentredCell(column.heading, column.width, L' ');
  }
  return row;
}

struct FrameBase {
  std::uint64_t time;
  std::uint64_t calls;
};

void AppendRow(std::wstring& text, CProfileInstance const& n, FrameBase base) {
  // A node with no completed call yet has no average: it shows 0.00.
  const double average =
      n.totalCalls ? static_cast<double>(n.totalTime) / static_cast<double>(n.totalCalls) : 0.0;
  const std::wstring cells[] = {
      n.name,
      detail::TwoDecimals(average),
      std::to_wstring(n.minTime),
      std::to_wstring(n.maxTime),
      std::to_wstring(n.totalTime),
      std::to_wstring(n.totalCalls),
      detail::TwoDecimals(static_cast<double>(n.totalTime) / static_cast<double>(base.calls)),
      Percent(n.totalRatio),
      base.time == 0 ? std::wstring(L"100")
                     : Percent(static_cast<double>(n.totalTime) / static_cast<double>(base.time)),
  };
  for (std::size_t i = 0; i < std::size(cells); ++i)
    text.append(detail::RightCell(cells[i], kColumns[i].width)).append(L"|");
  text.append(4 * std::size_t{n.depth}, L'-').append(n.depth == 1 ? L"#" : L"*").append(L"\n");
}

} // namespace

void CProfiler::WriteRows(std::wstring& text) {
  // Another thread may dump this table: the walk keeps its own stack.
  std::vector<CProfileInstance*> stack;
  for (CProfileInstance* top : root.children) {
    const FrameBase base{top->totalTime, std::max<std::uint64_t>(top->totalCalls, 1)};
    WalkSubtree(top, stack, [&](CProfileInstance* n) { AppendRow(text, *n, base); });
  }
}

bool CProfiler::LogProfileResult(std::basic_ostream<wchar_t>& out) {
  ProfileGuard lock(ProfileLock());
  if (!out.good())
    return false;
  const std::wstring title = L"Profile Result (" + GCoreSystem::GetLocalTimeWString() + L")";
  const std::wstring rule(kTableWidth, L'-');
  std::wstring rows;
  WriteRows(rows);
  out << detail::CentredCell(title, kTableWidth, L'-') << std::endl;
  out << HeadingRow() << std::endl;
  out << rule << std::endl;
  // Rows end in "\n" rather than std::endl: the stream is flushed once below.
  out << rows << rule << std::endl;
  out.flush();
  return true;
}

bool CProfiler::LogProfileResult(std::wstring const& path) {
  ProfileGuard lock(ProfileLock());
  std::wostringstream table;
  return LogProfileResult(table) && AppendToFile(path, table.str());
}

// --- CProfileManager ---------------------------------------------------------

namespace {

std::atomic<std::uint64_t> g_nNextManagerSerial{1};

// The calling thread's profiler of the manager with this serial number, so
// that a thread finds it without building its identifier and taking the lock.
struct ThreadProfilerCache {
  std::uint64_t serial = 0;
  CProfiler* profiler = nullptr;
};
// The default TLS model, as the call-tree profiler's starter chain, so that
// the library can be loaded with dlopen.
thread_local ThreadProfilerCache t_cache;

} // namespace

CProfileManager::CProfileManager() : m_nSerial(g_nNextManagerSerial.fetch_add(1)) {}

CProfileManager::~CProfileManager() {
  ProfileGuard lock(ProfileLock());
  for (auto& entry : m_mapProfilers)
    delete entry.second;
  m_mapProfilers.clear();
}

std::wstring CProfileManager::GetTheadIdString() {
  const boost::thread::id id = boost::this_thread::get_id();
  if (id == boost::thread::id())
    return L"{Not-any-thread}";
  std::ostringstream text;
  text << std::hex << std::nouppercase << id;
  std::string digits = text.str();
  if (digits.rfind("0x", 0) == 0)
    digits.erase(0, 2);
  return std::wstring(digits.begin(), digits.end());
}

CProfiler& CProfileManager::GetCurrentThreadProfiler() {
  if (t_cache.serial == m_nSerial)
    return *t_cache.profiler;
  const std::wstring id = GetTheadIdString();
  ProfileGuard lock(ProfileLock());
  CProfiler*& profiler = m_mapProfilers[id];
  if (!profiler)
    profiler = new CProfiler;
  t_cache = {m_nSerial, profiler};
  return *profiler;
}

void CProfileManager::BeginProfile(std::wstring const& name) {
  GetCurrentThreadProfiler().BeginProfile(name);
}

void CProfileManager::EndProfile(std::wstring const& name) {
  GetCurrentThreadProfiler().EndProfile(name);
}

void CProfileManager::ResetProfile() { GetCurrentThreadProfiler().ResetProfile(); }

std::wstring const& CProfileManager::GetTitlesStr() {
  return GetCurrentThreadProfiler().GetTitlesStr();
}

std::wstring const& CProfileManager::GetValueStr() {
  return GetCurrentThreadProfiler().GetValueStr();
}

CProfileInstance const* CProfileManager::GetRootInstance() {
  return GetCurrentThreadProfiler().GetRootInstance();
}

bool CProfileManager::DumpProfile(std::basic_ostream<wchar_t>& out) {
  ProfileGuard lock(ProfileLock());
  for (auto& [id, profiler] : m_mapProfilers) {
    out << detail::CentredCell(L"Thread: " + id, 30, L'-') << std::endl;
    profiler->LogProfileResult(out);
  }
  return true;
}

bool CProfileManager::DumpProfile(std::wstring const& path) {
  ProfileGuard lock(ProfileLock());
  std::wostringstream text;
  DumpProfile(text);
  return AppendToFile(path, text.str());
}

// --- CProfile ----------------------------------------------------------------

CProfile::CProfile(std::wstring const& name)
    : m_pProfiler(&CSingleton<CProfileManager>::GetInstance().GetCurrentThreadProfiler()) {
  m_pProfiler->BeginProfile(name);
}

CProfile::CProfile(wchar_t const* name)
    : m_pProfiler(&CSingleton<CProfileManager>::GetInstance().GetCurrentThreadProfiler()) {
  m_pProfiler->BeginProfile(name);
}

CProfile::~CProfile() { m_pProfiler->EndProfile(); }

} // namespace zrn
