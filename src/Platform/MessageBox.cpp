#include "Platform/HandlerSlot.h"
#include "Platform/Platform.h"

#include <zrn/System/MessageBox.h>

#include <string>

namespace zrn {
namespace {

platform::HandlerSlot<MessageBoxHandler>& Slot() {
  static auto* const slot = new platform::HandlerSlot<MessageBoxHandler>;
  return *slot;
}

int ShowOnStandardError(std::string_view caption, std::string_view text) {
  std::string box;
  box.reserve(caption.size() + text.size() + 8);
  box.append("[").append(caption).append("] ").append(text).append("\n");
  platform::WriteStandardError(box);
  return MESSAGE_BOX_RESULT_OK;
}

} // namespace

int ShowMessageBox(std::string_view caption, std::string_view text, unsigned style) {
  if (auto handler = Slot().Get())
    return (*handler)(caption, text, style);
  return ShowOnStandardError(caption, text);
}

MessageBoxHandler SetMessageBoxHandler(MessageBoxHandler handler) {
  return Slot().Exchange(std::move(handler));
}

} // namespace zrn
