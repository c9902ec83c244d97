#include <zrn/Profile/Assert.h>
#include <zrn/System/Debugger.h>
#include <zrn/System/MessageBox.h>

#include "Platform/Platform.h"

#include <cstdlib>
#include <utility>

namespace zrn {
namespace {

constexpr char kMessageBoxTitle[] = "SMART_ASSERT triggered!";

// The stream is good again when a level call leaves, however it leaves.
class ClearOnExit {
public:
  explicit ClearOnExit(std::ostream& stream) : m_stream(stream) {}
  ~ClearOnExit() { m_stream.clear(); }
  ClearOnExit(ClearOnExit const&) = delete;
  ClearOnExit& operator=(ClearOnExit const&) = delete;

private:
  std::ostream& m_stream;
};

} // namespace

ExceptionWithMinidump::ExceptionWithMinidump(std::string dumpPath, std::string const& report)
    : m_strDumpPath(std::move(dumpPath)),
      m_strText("minidump file path:\n" + m_strDumpPath + "\n" + report) {}

ExceptionWithMinidump::~ExceptionWithMinidump() = default;

char const* ExceptionWithMinidump::what() const noexcept { return m_strText.c_str(); }

Assert::Assert() : SMART_ASSERT_A(*this), SMART_ASSERT_B(*this) {}

Assert::~Assert() = default;

Assert& Assert::print_context(char const* expression, char const* file, int line) {
  m_streamMessage << "Failed:" << expression << "\n"
                  << "File:\n"
                  << file << "(" << line << ")"
                  << "\n";
  return *this;
}

Assert& Assert::print_current_val(int value, char const* name) {
  m_streamMessage << name << "=" << value << "\n";
  return *this;
}

Assert& Assert::print_current_val(double value, char const* name) {
  m_streamMessage << name << "=" << value << "\n";
  return *this;
}

Assert& Assert::print_current_val(char const* value, char const* name) {
  m_streamMessage << name << "=" << value << "\n";
  return *this;
}

void Assert::Append(char const* message) {
  if (message)
    m_streamMessage << message;
}

void Assert::SendToDebugger() { OutputDebugText(m_streamMessage.view()); }

void Assert::warn(char const* message) {
  ClearOnExit clear(m_streamMessage);
  Append(message);
  SendToDebugger();
}

void Assert::debug(char const* message) { level(LEVEL_DEBUG, message); }

void Assert::error(char const* message) { level(LEVEL_ERROR, message); }

void Assert::fatal(char const* message) {
  Append(message);
  SendToDebugger();
  std::abort();
}

void Assert::level(ErrorLevel lvl, char const* message) {
  ClearOnExit clear(m_streamMessage);
  Append(message);
  const bool debugger = IsDebuggerAttached();
  if (debugger && lvl == LEVEL_ERROR)
    lvl = LEVEL_DEBUG;
  SendToDebugger();
  if (lvl == LEVEL_DEBUG) {
    ShowMessageBox(kMessageBoxTitle, m_streamMessage.str(), MESSAGE_BOX_ICON_ERROR);
    if (debugger)
      BreakIntoDebugger();
  } else if (lvl == LEVEL_FATAL) {
    std::abort();
  } else if (lvl == LEVEL_ERROR) {
    // The path and the report's text are used in place: nothing is allocated
    // before the report is on disk.
    char path[platform::kCrashReportPathCapacity];
    const std::size_t length = platform::CrashReportPath(path, sizeof(path));
    if (length != 0)
      platform::WriteCrashReport(path, m_streamMessage.view());
    throw ExceptionWithMinidump(std::string(path, length), m_streamMessage.str());
  }
}

} // namespace zrn
