// The framing of an archived object, shared by the archive that writes and
// reads it and by the structure reader that walks it without knowing its
// content.
#ifndef ZRN_SRC_IO_ARCHIVEFRAME_H
#define ZRN_SRC_IO_ARCHIVEFRAME_H

#include <cstddef>
#include <cstring>

namespace zrn::detail {

/// An object starts with its version (2 bytes) and its block count (1 byte).
inline constexpr std::size_t kObjectHeaderSize = 3;
/// Where the block count lies within the object header.
inline constexpr std::size_t kBlockCountOffset = 2;
/// A block starts with its tag (1 byte) and its payload size (4 bytes).
inline constexpr std::size_t kBlockHeaderSize = 5;
/// Where the payload size lies within the block header.
inline constexpr std::size_t kBlockSizeOffset = 1;

struct sObjectHeader {
  unsigned short version;
  unsigned char blockCount;
};

struct sBlockHeader {
  unsigned char tag;
  unsigned int size;
};

/// The header of the object whose first kObjectHeaderSize bytes are at `at`.
inline sObjectHeader DecodeObjectHeader(char const* at) {
  sObjectHeader header;
  std::memcpy(&header.version, at, sizeof header.version);
  std::memcpy(&header.blockCount, at + kBlockCountOffset, 1);
  return header;
}

/// The header of the block whose first kBlockHeaderSize bytes are at `at`.
inline sBlockHeader DecodeBlockHeader(char const* at) {
  sBlockHeader header;
  std::memcpy(&header.tag, at, 1);
  std::memcpy(&header.size, at + kBlockSizeOffset, sizeof header.size);
  return header;
}

/// The bytes that follow a stored length of `length` units of `unitSize`
/// bytes (strings, wide strings, byte arrays): a length below 1 means that
/// nothing follows.
inline std::size_t StoredPayloadBytes(int length, std::size_t unitSize) {
  return length < 1 ? 0 : static_cast<std::size_t>(length) * unitSize;
}

} // namespace zrn::detail

#endif
