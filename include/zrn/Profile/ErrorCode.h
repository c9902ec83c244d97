// The per-thread error code and its formatted message.
//
// Every thread has its own error code (0 when nothing has gone wrong) and its
// own ValistStream with the arguments of the code's message. A process-wide
// table maps codes to printf-style message formats; hosts add their own codes
// with SetErrorMessage. When the report mode is ERROR_REPORT_BREAK, setting a
// non-zero code stops in the debugger.
//
// Typical use:
//   zrn::ErrorCode::Report(zrn::err_bad_argument, 2);
//   ...
//   std::puts(zrn::GetErrorMessage());  // "err_bad_argument: parameter 2"
#ifndef ZRN_PROFILE_ERRORCODE_H
#define ZRN_PROFILE_ERRORCODE_H

#include <zrn/Export.h>
#include <zrn/Profile/ValistStream.h>

namespace zrn {

/// The library's own error codes.
enum : int {
  err_ok = 0,           ///< "err_ok"
  err_null_pointer = 1, ///< "err_null_pointer:%s"
  err_bad_argument = 2, ///< "err_bad_argument: parameter %d"
  err_failed = 3,       ///< "err_failed: %s"
  err_dont_support = 4, ///< "err_dont_support: %s"
};

/// The size of the per-thread buffer that GetErrorMessage formats into; a
/// longer message is cut to one character less.
constexpr int kErrorMessageBufferSize = 2048;

/// What setting a non-zero error code does besides recording it.
enum ErrorReportMode : int {
  ERROR_REPORT_SILENT = 0, ///< only record the code
  ERROR_REPORT_BREAK = 1,  ///< also stop in the debugger
};

/// The key of the thread-local slot that holds each thread's ValistStream.
ZRN_API extern unsigned int g_tlsIndex;

/// Sets the process-wide report mode and returns the previous one. The mode
/// starts as ERROR_REPORT_BREAK when a debugger is attached at load, else
/// ERROR_REPORT_SILENT. Values other than 0 and 1 behave as 0.
ZRN_API ErrorReportMode SetErrorReportMode(ErrorReportMode mode);

/// The calling thread's current error code.
ZRN_API int GetError();

/// Registers or replaces the message format of `code` (copied up to its NUL).
/// Hosts register their messages before other threads read them.
ZRN_API void SetErrorMessage(int code, char const* text);

/// The message of `code`, formatted with the calling thread's ValistStream
/// into a per-thread buffer that stays valid until this thread calls
/// GetErrorMessage again. An unknown code gives "Can't understand error code".
ZRN_API char const* GetErrorMessage(int code);

/// GetErrorMessage(GetError()).
ZRN_API char const* GetErrorMessage();

/// The calling thread's parameter stream, created empty on first use.
ZRN_API ValistStream& GetErrorParamStream();

/// Destroys the calling thread's parameter stream, if it has one.
ZRN_API void ReleaseErrorParamStream();

/// The writer of the per-thread error code.
class ZRN_API ErrorCode {
public:
  /// Sets `code` with `args` as its message arguments: the thread's stream
  /// starts afresh and receives `args` in order, one per placeholder.
  template <class... Args> static void Report(int code, Args const&... args) {
    ValistStream& stream = GetErrorParamStream();
    stream.Clear();
    (stream.Append(args), ...);
    SetError(code);
  }

  /// Sets `code` and keeps the arguments already in the thread's stream.
  static void Set(int code) { SetError(code); }

  /// Sets err_ok and empties the thread's stream.
  static void Clear() { Report(err_ok); }

private:
  static void SetError(int code);
};

} // namespace zrn

/// The calling thread's formatted error message (GetErrorMessage()).
ZRN_API char const* zrn_err();

#endif // ZRN_PROFILE_ERRORCODE_H
