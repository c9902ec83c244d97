// Walks arbitrary bytes with the archive structure reader, from memory and
// through a device, and checks that the two agree and that every Begin has
// its End.
#include <zrn/IO/ArchiveReader.h>
#include <zrn/IO/MemStream.h>
#include <zrn/Object/RefPtr.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

class CBalance : public zrn::IArchiveVisitor {
public:
  long long depth = 0;
  unsigned long long events = 0;
  void BeginObject(zrn::sArchiveObject const&) override { Open(); }
  void EndObject(long long) override { Close(); }
  void BeginBlock(zrn::sArchiveBlock const&) override { Open(); }
  void EndBlock(long long) override { Close(); }
  void BeginNamed(zrn::sArchiveNamed const&) override { Open(); }
  void EndNamed(long long) override { Close(); }
  void Leaf(zrn::sArchiveLeaf const&) override { ++events; }
  void Named(zrn::sArchiveNamed const&) override { ++events; }

private:
  void Open() {
    ++depth;
    ++events;
  }
  void Close() {
    if (--depth < 0)
      std::abort();
  }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  zrn::CArchiveReader reader;
  reader.SetMaxDepth(64);
  CBalance fromMemory;
  const bool whole = reader.Read(data, size, fromMemory);
  const long long stoppedAt = reader.StoppedAt();
  if (fromMemory.depth != 0 || stoppedAt > static_cast<long long>(size))
    std::abort();

  zrn::CRefPtr<zrn::GMemStream> stream(new zrn::GMemStream());
  stream->SetData(reinterpret_cast<char*>(const_cast<std::uint8_t*>(data)), static_cast<int>(size));
  CBalance fromDevice;
  if (reader.Read(*stream, fromDevice) != whole || reader.StoppedAt() != stoppedAt ||
      fromDevice.events != fromMemory.events || fromDevice.depth != 0)
    std::abort();
  return 0;
}
