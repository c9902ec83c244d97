// The library's logger.
//
// CLogManager takes a message and a level, drops it when the level is less
// important than the current one, and writes one line to the debugger output,
// the log file and every registered wide stream, in that order. A line is
//
//     [number right-aligned in 6, a blank][[hh:mm:ss] - ][LEVEL]: message\n
//
// where the number and the time of day are optional. The current level is the
// top of a bounded stack, so that a stretch of work can change the verbosity
// and restore it afterwards.
//
//   auto& log = zrn::CSingleton<zrn::CLogManager>::GetInstance();
//   log.SetOutputFilePath(L"host.log");
//   log.Log(L"model loaded", zrn::LOG_LEVEL_NORMAL);
#ifndef ZRN_PROFILE_GLOG_LOGMANAGER_H
#define ZRN_PROFILE_GLOG_LOGMANAGER_H

#include <zrn/Export.h>
#include <zrn/Profile/GLog/Singleton.h>

#include <bitset>
#include <cstdint>
#include <deque>
#include <memory>
#include <ostream>
#include <stack>
#include <string>
#include <vector>

namespace zrn {

/// Importance of a message; a lower value is more important.
enum EnLogLevel {
  LOG_LEVEL_CRITICAL = 0,
  LOG_LEVEL_NORMAL = 1,
  LOG_LEVEL_TRIVIAL = 2,
  LOG_LEVEL_DEBUG = 3,
};

class CLogManager;
extern template class ZRN_API CSingleton<CLogManager>;

/// The process-wide logger, reached through CSingleton<CLogManager>.
///
/// Thread-safety: every operation runs under one process-wide recursive lock,
/// so lines from several threads never interleave and line numbers follow the
/// order in which lines are written. The lock is recursive, so a registered
/// stream may itself log from within an insertion.
///
/// By default only the debugger output is on, with no time stamps or line
/// numbers, and the level is LOG_LEVEL_TRIVIAL. While the level stack is
/// empty, messages are filtered as at LOG_LEVEL_TRIVIAL.
///
/// The log file is written in UTF-8 and buffered; the buffer goes to disk when
/// it fills, after every critical line, when the file is closed, and at exit.
/// When a write to it fails (a full disk, say), the failure is reported once
/// to the debugger output and standard error, the file takes no more lines,
/// and the other outputs go on; IsLogFileGood tells the host.
class ZRN_API CLogManager : public CSingleton<CLogManager> {
public:
  /// The most entries the level stack may hold, the initial one included.
  static const int MAX_LOG_LEVE_STACK_SIZE = 256;

  CLogManager();
  ~CLogManager() override;

  /// Writes `message` at `level` unless the current level filters it out.
  void Log(std::wstring const& message, EnLogLevel level);
  /// Writes `message`, each byte widened by itself (no code-page conversion).
  void Log(std::string const& message, EnLogLevel level);

  /// Replaces the current level; pushes it when the stack is empty.
  void SetLogLevel(EnLogLevel level);
  /// The current level. Throws CErrorException when the stack is empty.
  EnLogLevel GetLogLevel();
  /// Makes `level` current until the matching PopLogLevel. Throws
  /// CErrorException when the stack is full.
  void PushLogLevel(EnLogLevel level);
  /// Restores the level before the last push. Throws CErrorException when
  /// the stack is empty.
  void PopLogLevel();
  /// "CRITICAL", "NORMAL", "TRIVIAL", "DEBUG", or empty for other values.
  std::wstring GetLogLevelString(EnLogLevel level);

  /// Registers a stream that receives every written line. The manager never
  /// owns, flushes or closes it; the caller removes it before destroying it.
  void AppendOuputStream(std::basic_ostream<wchar_t>* stream);
  /// Removes the first registration of `stream`, if any.
  void RemoveOuputStream(std::basic_ostream<wchar_t> const* stream);
  /// Removes every registered stream.
  void RemoveAllOuputStream();

  /// Opens the log file at `path` for appending, writes a banner with the
  /// date and time straight to disk, and switches file output on; returns
  /// whether the file is open and the banner was written. Fails while a file
  /// is already open, and then stops file output until an empty path closes
  /// the file. An empty path closes the file and returns true.
  bool SetOutputFilePath(std::wstring const& path);

  /// True while a log file is open and every line given to it so far has
  /// reached it; the buffer is sent to disk first so that the answer covers
  /// every line logged. False with no log file open, once a write to the file
  /// has failed (until a file is opened again), and after a failed second
  /// SetOutputFilePath.
  bool IsLogFileGood();

  void SetLogFileOutput(bool on);
  bool IsLogFileOutput();
  void SetDebuggerOutput(bool on);
  bool IsDebuggerOutput();
  void SetTimeStamp(bool on);
  bool IsTimeStamp();
  void ShowLineNumber(bool on);
  bool IsShowLineNumber();
  /// Makes the next numbered line number 1.
  void ResetLineNumber();

private:
  class LogFile;
  struct LineBuffer;
  class TimeOfDayCache;
  // Recursive, so that a stream may log while a line is being inserted into it.
  class ZRN_CAPABILITY("mutex") StateLock;

  // The one lock of everything below; it outlives the manager.
  static StateLock& LogLock();

  template <class Text> void WriteLine(Text const& message, EnLogLevel level);
  void Dispatch(LineBuffer& buffer, EnLogLevel level) ZRN_REQUIRES(LogLock());
  EnLogLevel FilterLevel() const ZRN_REQUIRES(LogLock());

  std::unique_ptr<LogFile> m_pLogFile ZRN_GUARDED_BY(LogLock());
  std::vector<std::basic_ostream<wchar_t>*> m_vecOutputStreams ZRN_GUARDED_BY(LogLock());
  std::bitset<4> m_bitsetFlags ZRN_GUARDED_BY(LogLock());
  std::stack<EnLogLevel, std::deque<EnLogLevel>> m_stackLevels ZRN_GUARDED_BY(LogLock());
  std::uint64_t m_nLineCounter ZRN_GUARDED_BY(LogLock());

  // Per nesting depth, so that a stream that logs from within an insertion
  // does not overwrite the line being written.
  std::vector<std::unique_ptr<LineBuffer>> m_vecBuffers ZRN_GUARDED_BY(LogLock());
  std::size_t m_nDepth ZRN_GUARDED_BY(LogLock());
  std::unique_ptr<TimeOfDayCache> m_pClock ZRN_GUARDED_BY(LogLock());
};

} // namespace zrn

#endif // ZRN_PROFILE_GLOG_LOGMANAGER_H
