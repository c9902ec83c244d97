// Message boxes, routed through a host-installable handler.
//
// The library shows a message box in a few places (a failed start-up, an
// assertion). No window is opened by default: the text goes to standard error
// and the box answers as if OK had been pressed. A host with a user interface
// installs a handler that shows a real one.
#ifndef ZRN_SYSTEM_MESSAGEBOX_H
#define ZRN_SYSTEM_MESSAGEBOX_H

#include <zrn/Export.h>

#include <functional>
#include <string_view>

namespace zrn {

/// Button and icon bits of a message box style; they combine with `|`.
enum EMessageBoxStyle : unsigned {
  MESSAGE_BOX_OK = 0x00,
  MESSAGE_BOX_OK_CANCEL = 0x01,
  MESSAGE_BOX_ABORT_RETRY_IGNORE = 0x02,
  MESSAGE_BOX_YES_NO = 0x04,
  MESSAGE_BOX_ICON_ERROR = 0x10,
  MESSAGE_BOX_ICON_QUESTION = 0x20,
  MESSAGE_BOX_ICON_WARNING = 0x30,
  MESSAGE_BOX_ICON_INFORMATION = 0x40,
};

/// The button that closed a message box.
enum EMessageBoxResult : int {
  MESSAGE_BOX_RESULT_OK = 1,
  MESSAGE_BOX_RESULT_CANCEL = 2,
  MESSAGE_BOX_RESULT_ABORT = 3,
  MESSAGE_BOX_RESULT_RETRY = 4,
  MESSAGE_BOX_RESULT_IGNORE = 5,
  MESSAGE_BOX_RESULT_YES = 6,
  MESSAGE_BOX_RESULT_NO = 7,
};

/// Shows a box with `caption`, `text` and `style` (EMessageBoxStyle bits) and
/// returns the EMessageBoxResult of the button that closed it.
using MessageBoxHandler =
    std::function<int(std::string_view caption, std::string_view text, unsigned style)>;

/// Shows a modal message box through the installed handler.
ZRN_API int ShowMessageBox(std::string_view caption, std::string_view text, unsigned style);

/// Installs `handler` and returns the previous one (empty for the default).
/// An empty handler restores the default. Thread-safe.
ZRN_API MessageBoxHandler SetMessageBoxHandler(MessageBoxHandler handler);

} // namespace zrn

#endif // ZRN_SYSTEM_MESSAGEBOX_H
