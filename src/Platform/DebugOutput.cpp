#include "Platform/HandlerSlot.h"
#include "Platform/Platform.h"
#include "Text/Utf8.h"

#include <zrn/System/Debugger.h>

namespace zrn {
namespace {

// Never destroyed: statics of the host may write debugger output while the
// process exits.
platform::HandlerSlot<DebugOutputHandler>& Slot() {
  static auto* const slot = new platform::HandlerSlot<DebugOutputHandler>;
  return *slot;
}

} // namespace

namespace platform {

bool DebugOutputWanted() { return Slot().Installed() || IsDebuggerAttachedRecently(); }

void OutputDebugUtf8(std::string_view text) {
  if (Slot().Installed()) {
    if (auto handler = Slot().Get()) {
      (*handler)(text);
      return;
    }
  }
  if (IsDebuggerAttachedRecently())
    WriteStandardError(text);
}

void ReportToDebuggerAndStandardError(std::string_view text) {
  // Without a handler the debugger sink is standard error itself.
  if (Slot().Installed()) {
    if (auto handler = Slot().Get())
      (*handler)(text);
  }
  WriteStandardError(text);
}

} // namespace platform

void OutputDebugText(std::string_view text) { platform::OutputDebugUtf8(text); }

void OutputDebugText(std::wstring_view text) {
  if (platform::DebugOutputWanted())
    platform::OutputDebugUtf8(detail::ToUtf8(text));
}

DebugOutputHandler SetDebugOutputHandler(DebugOutputHandler handler) {
  return Slot().Exchange(std::move(handler));
}

} // namespace zrn
