// The vectorised parts of base64, chosen at run time by Base64.cpp.
#ifndef ZRN_SRC_TEXT_BASE64KERNELS_H
#define ZRN_SRC_TEXT_BASE64KERNELS_H

#include <cstddef>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define ZRN_BASE64_X86_KERNELS 1
#endif

namespace zrn::detail {

#if defined(ZRN_BASE64_X86_KERNELS)
/// Encodes groups of 24 bytes from the start of the `size` bytes at `in`
/// while more than 28 remain, 32 characters each; returns the bytes encoded,
/// with `out` moved past the characters.
std::size_t EncodeBase64Avx2(unsigned char const* in, std::size_t size, char*& out);

/// Decodes groups of 32 characters from the start of the `size` at `in`, up
/// to the first group that holds anything but alphabet characters; returns
/// the characters decoded, with `out` moved past the bytes (24 a group). Each
/// group writes 32 bytes: `out` needs 8 bytes of room beyond the result.
std::size_t DecodeBase64Avx2(unsigned char const* in, std::size_t size, char*& out);
#endif

} // namespace zrn::detail

#endif
