// Base64 encoding and decoding of byte strings (standard alphabet, "="
// padding, no line breaks).
#ifndef ZRN_TEXT_BASE64_H
#define ZRN_TEXT_BASE64_H

#include <zrn/Export.h>

#include <string>

/// `length` bytes of `data` in base64: four characters per three bytes, a
/// final one or two bytes padded with "=" to four characters. Empty for
/// length 0.
ZRN_API std::string base64_encode(unsigned char const* data, unsigned int length);

/// The bytes that `text` encodes, which may include NUL bytes. Decoding stops,
/// without error, at the first "=" or at the first character outside the
/// alphabet (letters, digits, "+", "/"), white space and line breaks included.
/// A final group of two or three characters gives one or two bytes; a single
/// leftover character gives nothing.
ZRN_API std::string base64_decode(std::string const& text);

#endif // ZRN_TEXT_BASE64_H
