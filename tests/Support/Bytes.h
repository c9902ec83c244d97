// Byte-level helpers for tests of the archive format.
#ifndef ZRN_TESTS_SUPPORT_BYTES_H
#define ZRN_TESTS_SUPPORT_BYTES_H

#include <zrn/IO/MemStream.h>
#include <zrn/Object/RefPtr.h>

#include <cstdint>
#include <initializer_list>
#include <vector>

namespace zrn::test {

using Bytes = std::vector<std::uint8_t>;

/// The bytes a storing memory stream holds up to its position.
inline Bytes Written(GMemStream& stream) {
  auto const* data = reinterpret_cast<std::uint8_t const*>(stream.GetData());
  return Bytes(data, data + stream.GetDataSize());
}

/// A loading memory stream over its own copy of `bytes`.
inline GMemStream* LoadingStream(Bytes const& bytes) {
  auto* stream = new GMemStream();
  stream->SetData(reinterpret_cast<char*>(const_cast<std::uint8_t*>(bytes.data())),
                  static_cast<int>(bytes.size()));
  return stream;
}

} // namespace zrn::test

#endif
