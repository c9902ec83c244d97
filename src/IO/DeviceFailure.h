// How the library's devices report a failure: a refused write, or a file
// that could not be written.
#ifndef ZRN_SRC_IO_DEVICEFAILURE_H
#define ZRN_SRC_IO_DEVICEFAILURE_H

#include <string>

namespace zrn::detail {

/// Sets the calling thread's error code to err_failed with `text` as its
/// message argument ("err_failed: <text>").
void ReportDeviceFailure(std::string const& text);

} // namespace zrn::detail

#endif
