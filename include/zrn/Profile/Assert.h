// Reports of failed assertions, acted on by level: debugger output always,
// then a message box and a debugger break, an abort, or a crash report and a
// thrown ExceptionWithMinidump.
//
// A host's assertion macro creates an Assert when its condition is false and
// chains the recording calls, ending with one level call:
//
//   zrn::Assert().print_context("a > b", __FILE__, __LINE__)
//       .print_current_val(a, "a").print_current_val(b, "b").error("bad range");
//
// On this platform the crash report is a text file beside the executable
// (its extension replaced by ".dmp", or ".dmp" appended to a name without
// one): the report, the failing thread's stack trace and the memory map.
#ifndef ZRN_PROFILE_ASSERT_H
#define ZRN_PROFILE_ASSERT_H

#include <zrn/Export.h>

#include <exception>
#include <sstream>
#include <string>

namespace zrn {

/// Thrown by an assertion at error level after the crash report was written
/// (or could not be). Copying copies both texts.
class ZRN_API ExceptionWithMinidump : public std::exception {
public:
  /// `what()` becomes "minidump file path:\n", the path, "\n" and `report`.
  ExceptionWithMinidump(std::string dumpPath, std::string const& report);
  ~ExceptionWithMinidump() override;

  char const* what() const noexcept override;
  /// Where the crash report was meant to go.
  std::string const& GetDumpFilePath() const noexcept { return m_strDumpPath; }

private:
  std::string m_strDumpPath;
  std::string m_strText;
};

/// One assertion report: filled by the recording calls, finished by one level
/// call. The text stays in the object; a second level call appends to it.
/// Used by one thread.
class ZRN_API Assert {
public:
  /// What happens after the report has gone to the debugger output.
  enum ErrorLevel {
    LEVEL_ERROR = 0, ///< crash report, then ExceptionWithMinidump (debug with a debugger)
    LEVEL_DEBUG = 1, ///< message box, then a break if a debugger is attached
    LEVEL_FATAL = 2, ///< abort the process
    LEVEL_WARN = 3,  ///< nothing further (as every value above 3)
  };

  Assert();
  ~Assert();
  Assert(Assert const&) = delete;
  Assert& operator=(Assert const&) = delete;

  /// Appends "Failed:<expression>\nFile:\n<file>(<line>)\n".
  Assert& print_context(char const* expression, char const* file, int line);
  /// Appends "<name>=<value>\n".
  Assert& print_current_val(int value, char const* name);
  Assert& print_current_val(double value, char const* name);
  Assert& print_current_val(char const* value, char const* name);

  /// The message (if any) is appended, then the report goes to the debugger
  /// output.
  void warn(char const* message);
  /// As `level(LEVEL_DEBUG, message)`.
  void debug(char const* message);
  /// As `level(LEVEL_ERROR, message)`.
  void error(char const* message);
  /// Debugger output, then abort.
  [[noreturn]] void fatal(char const* message);
  /// Appends the message, sends the report to the debugger output and acts as
  /// the level says. Throws ExceptionWithMinidump at LEVEL_ERROR without a
  /// debugger.
  void level(ErrorLevel level, char const* message);

  /// Both refer to the object itself, so that a host's macros can chain
  /// through them.
  Assert& SMART_ASSERT_A;
  Assert& SMART_ASSERT_B;

private:
  void Append(char const* message);
  void SendToDebugger();

  std::basic_ostringstream<char> m_streamMessage;
};

} // namespace zrn

#endif // ZRN_PROFILE_ASSERT_H
