// The debugger as the library sees it: presence, break, and the debugger
// output.
//
// Debugger output is a process-wide sink. By default it writes to standard
// error, and only while a debugger is attached to the process. A host installs
// its own handler to route the text elsewhere (a log window, a test).
#ifndef ZRN_SYSTEM_DEBUGGER_H
#define ZRN_SYSTEM_DEBUGGER_H

#include <zrn/Export.h>

#include <functional>
#include <string_view>

namespace zrn {

/// Receives every text sent to the debugger output, as UTF-8. Called on the
/// thread that sent the text; it must not install another handler.
using DebugOutputHandler = std::function<void(std::string_view utf8Text)>;

/// True while a debugger (any tracer) is attached to the process.
ZRN_API bool IsDebuggerAttached();

/// Stops in an attached debugger. Without one, the default action of the trap
/// signal ends the process.
ZRN_API void BreakIntoDebugger();

/// Sends wide text to the debugger output (encoded as UTF-8 on the way).
ZRN_API void OutputDebugText(std::wstring_view text);

/// Sends narrow text to the debugger output unchanged.
ZRN_API void OutputDebugText(std::string_view text);

/// Installs `handler` as the debugger output and returns the previous handler
/// (empty when the default was in place). An empty handler restores the
/// default. Thread-safe.
ZRN_API DebugOutputHandler SetDebugOutputHandler(DebugOutputHandler handler);

} // namespace zrn

#endif // ZRN_SYSTEM_DEBUGGER_H
