#include <zrn/Profile/ErrorException.h>
#include <zrn/Profile/GLog/LogManager.h>

#include "Platform/Platform.h"
#include "Profile/GLog/LogFile.h"
#include "System/AnnotatedMutex.h"
#include "System/LocalTime.h"
#include "Text/Utf8.h"

#include <boost/thread/recursive_mutex.hpp>

#include <ctime>
#include <string_view>

namespace zrn {

template class CSingleton<CLogManager>;

const int CLogManager::MAX_LOG_LEVE_STACK_SIZE;

namespace {

constexpr char kSourcePath[] = "Profile\\GLog";
constexpr std::size_t kLineNumberWidth = 6;

// Bits of CLogManager::m_bitsetFlags.
constexpr std::size_t kDebuggerOutputBit = 0;
constexpr std::size_t kFileOutputBit = 1;
constexpr std::size_t kTimeStampBit = 2;
constexpr std::size_t kLineNumberBit = 3;

// Lines are short critical sections: a waiter that spins briefly usually
// gets the lock without the cost of sleeping and being woken by the kernel.
// The analysis cannot follow a lock taken by one of several branches, hence
// the constructor's opt-out; its annotation still tells callers it locks.
template <class Lockable> class ZRN_SCOPED_CAPABILITY LogGuard {
public:
  explicit LogGuard(Lockable& mutex) ZRN_ACQUIRE(mutex) ZRN_NO_THREAD_SAFETY_ANALYSIS
      : m_mutex(mutex) {
    for (int spin = 0; spin < kSpinLimit; ++spin) {
      if (m_mutex.try_lock())
        return;
      CpuRelax();
    }
    m_mutex.lock();
  }
  ~LogGuard() ZRN_RELEASE() { m_mutex.unlock(); }
  LogGuard(LogGuard const&) = delete;
  LogGuard& operator=(LogGuard const&) = delete;

private:
  static constexpr int kSpinLimit = 200;

  static void CpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
  }

  Lockable& m_mutex;
};

std::wstring_view LevelText(EnLogLevel level) {
  switch (level) {
  case LOG_LEVEL_CRITICAL:
    return L"CRITICAL";
  case LOG_LEVEL_NORMAL:
    return L"NORMAL";
  case LOG_LEVEL_TRIVIAL:
    return L"TRIVIAL";
  case LOG_LEVEL_DEBUG:
    return L"DEBUG";
  }
  return {};
}

void AppendWidened(std::wstring& out, std::string_view text) {
  for (char c : text)
    out += static_cast<wchar_t>(static_cast<unsigned char>(c));
}

void AppendText(std::wstring& out, std::wstring const& text) { out += text; }
void AppendText(std::wstring& out, std::string const& text) { AppendWidened(out, text); }

void AppendLineNumber(std::wstring& out, std::uint64_t number) {
  wchar_t digits[20];
  std::size_t n = 0;
  do {
    digits[n++] = static_cast<wchar_t>(L'0' + number % 10);
    number /= 10;
  } while (number != 0);
  if (n < kLineNumberWidth)
    out.append(kLineNumberWidth - n, L' ');
  while (n > 0)
    out += digits[--n];
  out += L' ';
}

[[noreturn]] void ThrowStackError(wchar_t const* what, long line) {
  throw CErrorException(what, kSourcePath, line);
}

} // namespace

class CLogManager::StateLock : public detail::CAnnotatedMutex<boost::recursive_mutex> {};

// Created before the manager (its constructor asks for it) and so destroyed
// after it.
CLogManager::StateLock& CLogManager::LogLock() {
  static StateLock mutex;
  return mutex;
}

struct CLogManager::LineBuffer {
  std::wstring wide;
  std::string utf8;
};

// Formats "[hh:mm:ss] - " once per second rather than once per line.
class CLogManager::TimeOfDayCache {
public:
  std::wstring_view Prefix() {
    const std::time_t now = std::time(nullptr);
    if (m_strPrefix.empty() || now != m_nSecond) {
      std::wstring prefix = L"[";
      AppendWidened(prefix, detail::TimeOfDayText(now));
      prefix += L"] - ";
      m_strPrefix = std::move(prefix);
      m_nSecond = now;
    }
    return m_strPrefix;
  }

private:
  std::time_t m_nSecond = 0;
  std::wstring m_strPrefix;
};

CLogManager::CLogManager()
    : m_pLogFile(std::make_unique<LogFile>()), m_bitsetFlags(1u << kDebuggerOutputBit),
      m_nLineCounter(0), m_nDepth(0), m_pClock(std::make_unique<TimeOfDayCache>()) {
  LogLock();
  m_stackLevels.push(LOG_LEVEL_TRIVIAL);
}

CLogManager::~CLogManager() {
  LogGuard lock(LogLock());
  m_pLogFile->Close();
}

EnLogLevel CLogManager::FilterLevel() const {
  return m_stackLevels.empty() ? LOG_LEVEL_TRIVIAL : m_stackLevels.top();
}

template <class Text> void CLogManager::WriteLine(Text const& message, EnLogLevel level) {
  LogGuard lock(LogLock());
  if (static_cast<int>(level) > static_cast<int>(FilterLevel()))
    return;
  if (m_nDepth == m_vecBuffers.size())
    m_vecBuffers.push_back(std::make_unique<LineBuffer>());
  LineBuffer& buffer = *m_vecBuffers[m_nDepth];
  ++m_nDepth;
  struct DepthGuard {
    std::size_t& depth;
    ~DepthGuard() { --depth; }
  } guard{m_nDepth};

  std::wstring& line = buffer.wide;
  line.clear();
  if (m_bitsetFlags[kLineNumberBit])
    AppendLineNumber(line, ++m_nLineCounter);
  if (m_bitsetFlags[kTimeStampBit])
    line += m_pClock->Prefix();
  line += L'[';
  line += LevelText(level);
  line += L"]: ";
  AppendText(line, message);
  line += L'\n';
  Dispatch(buffer, level);
}

void CLogManager::Dispatch(LineBuffer& buffer, EnLogLevel level) {
  const bool toDebugger = m_bitsetFlags[kDebuggerOutputBit] && platform::DebugOutputWanted();
  const bool toFile = m_bitsetFlags[kFileOutputBit] && m_pLogFile->IsWritable();
  if (toDebugger || toFile) {
    buffer.utf8.clear();
    detail::AppendUtf8(buffer.utf8, buffer.wide);
  }
  if (toDebugger)
    platform::OutputDebugUtf8(buffer.utf8);
  if (toFile && m_pLogFile->IsWritable()) {
    m_pLogFile->Write(buffer.utf8);
    if (static_cast<int>(level) <= LOG_LEVEL_CRITICAL)
      m_pLogFile->Flush();
  }
  // By index: a stream may log, or change the registrations, as it inserts.
  for (std::size_t i = 0; i < m_vecOutputStreams.size(); ++i)
    *m_vecOutputStreams[i] << buffer.wide;
}

void CLogManager::Log(std::wstring const& message, EnLogLevel level) { WriteLine(message, level); }

void CLogManager::Log(std::string const& message, EnLogLevel level) { WriteLine(message, level); }

void CLogManager::SetLogLevel(EnLogLevel level) {
  LogGuard lock(LogLock());
  if (m_stackLevels.empty())
    m_stackLevels.push(level);
  else
    m_stackLevels.top() = level;
}

EnLogLevel CLogManager::GetLogLevel() {
  LogGuard lock(LogLock());
  if (m_stackLevels.empty())
    ThrowStackError(L"Log Level Stack is empty.", __LINE__);
  return m_stackLevels.top();
}

void CLogManager::PushLogLevel(EnLogLevel level) {
  LogGuard lock(LogLock());
  if (m_stackLevels.size() >= static_cast<std::size_t>(MAX_LOG_LEVE_STACK_SIZE))
    ThrowStackError(L"Log Level Stack is full.", __LINE__);
  m_stackLevels.push(level);
}

void CLogManager::PopLogLevel() {
  LogGuard lock(LogLock());
  if (m_stackLevels.empty())
    ThrowStackError(L"Log Level Stack is empty.", __LINE__);
  m_stackLevels.pop();
}

std::wstring CLogManager::GetLogLevelString(EnLogLevel level) {
  return std::wstring(LevelText(level));
}

void CLogManager::AppendOuputStream(std::basic_ostream<wchar_t>* stream) {
  LogGuard lock(LogLock());
  m_vecOutputStreams.push_back(stream);
}

void CLogManager::RemoveOuputStream(std::basic_ostream<wchar_t> const* stream) {
  LogGuard lock(LogLock());
  for (auto it = m_vecOutputStreams.begin(); it != m_vecOutputStreams.end(); ++it) {
    if (*it == stream) {
      m_vecOutputStreams.erase(it);
      return;
    }
  }
}

void CLogManager::RemoveAllOuputStream() {
  LogGuard lock(LogLock());
  m_vecOutputStreams.clear();
}

bool CLogManager::SetOutputFilePath(std::wstring const& path) {
  LogGuard lock(LogLock());
  if (path.empty()) {
    m_pLogFile->Close();
    return true;
  }
  if (!m_pLogFile->Open(detail::ToUtf8(path)))
    return false;
  const std::string rule(37, '-');
  m_pLogFile->Write("\n" + rule + detail::DateTimeText(std::time(nullptr)) + rule + "\n");
  m_pLogFile->Flush(); // a file that cannot be written fails here, not lines later
  m_bitsetFlags[kFileOutputBit] = true;
  return m_pLogFile->IsWritable();
}

bool CLogManager::IsLogFileGood() {
  LogGuard lock(LogLock());
  m_pLogFile->Flush();
  return m_pLogFile->IsWritable();
}

void CLogManager::SetLogFileOutput(bool on) {
  LogGuard lock(LogLock());
  m_bitsetFlags[kFileOutputBit] = on;
}

bool CLogManager::IsLogFileOutput() {
  LogGuard lock(LogLock());
  return m_bitsetFlags[kFileOutputBit];
}

void CLogManager::SetDebuggerOutput(bool on) {
  LogGuard lock(LogLock());
  m_bitsetFlags[kDebuggerOutputBit] = on;
}

bool CLogManager::IsDebuggerOutput() {
  LogGuard lock(LogLock());
  return m_bitsetFlags[kDebuggerOutputBit];
}

void CLogManager::SetTimeStamp(bool on) {
  LogGuard lock(LogLock());
  m_bitsetFlags[kTimeStampBit] = on;
}

bool CLogManager::IsTimeStamp() {
  LogGuard lock(LogLock());
  return m_bitsetFlags[kTimeStampBit];
}

void CLogManager::ShowLineNumber(bool on) {
  LogGuard lock(LogLock());
  m_bitsetFlags[kLineNumberBit] = on;
}

bool CLogManager::IsShowLineNumber() {
  LogGuard lock(LogLock());
  return m_bitsetFlags[kLineNumberBit];
}

void CLogManager::ResetLineNumber() {
  LogGuard lock(LogLock());
  m_nLineCounter = 0;
}

} // namespace zrn
