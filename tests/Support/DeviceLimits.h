// Lets tests lower the size limits of the library's devices, so that what
// happens at a limit can be tested without gigabytes of data.
#ifndef ZRN_TESTS_SUPPORT_DEVICELIMITS_H
#define ZRN_TESTS_SUPPORT_DEVICELIMITS_H

#include <zrn/IO/FileIOStream.h>
#include <zrn/IO/MemStream.h>
#include <zrn/Profile/ErrorCode.h>

#include <string>

namespace zrn {

// Befriended by the devices for this purpose only.
struct DeviceTestAccess {
  /// An owned buffer of `stream` never grows past `size` bytes (so it holds
  /// at most `size` - 1 bytes of output). The buffer must not be larger
  /// already: bytes that fit in it are taken without a check.
  static void SetMaxSize(GMemStream& stream, unsigned int size) { stream.m_nMaxSize = size; }
  /// `file` holds at most `bytes` bytes.
  static void SetLimit(GFileIOStream& file, long long bytes) { file.m_nLimit = bytes; }
};

namespace test {

/// The calling thread's error message, after which the code is cleared.
inline std::string TakeErrorMessage() {
  std::string message = GetError() == err_ok ? "" : GetErrorMessage();
  ErrorCode::Clear();
  return message;
}

} // namespace test
} // namespace zrn

#endif
