// Feeds arbitrary bytes to a loading archive and drives the reading patterns
// that object readers use: objects, blocks read or skipped by size, whole
// objects skipped, strings, wide strings, byte arrays, raw reads and
// variants (which recreate objects through the factory). Whatever
// the bytes claim, reading must stay inside the stream, allocate no more than
// it could hold, and end.
//
// Input: a byte n, then n script bytes choosing the operations, then the
// stream itself.
#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/MemStream.h>
#include <zrn/Property/Variant.h>

#include <cstdint>
#include <string>

namespace {

void ReadObjectWithBlocks(zrn::GDbArchiveImpl& ar, std::uint8_t how) {
  const long long start = ar.DevicePos();
  unsigned char count = 0;
  unsigned short version = 0;
  ar.ReadObject(count, version);
  if (version > 5) { // newer than this reader knows
    ar.EndReadObject();
    ar.RollbackReadObject(static_cast<int>(start));
    return;
  }
  for (unsigned i = 0; i < count; ++i) {
    unsigned char tag = 0;
    unsigned int size = 0;
    ar.ReadBlock(tag, size);
    const long long payload = ar.DevicePos();
    if ((tag + how) % 3 == 0) {
      std::string text;
      ar >> text;
    } else if ((tag + how) % 3 == 1) {
      ar.SkipObject();
    }
    if (ar.DevicePos() - payload != size)
      ar.SeekPos(static_cast<int>(payload + size), zrn::GDbArchive::SEEKFROM_BEGIN);
  }
  ar.EndReadObject();
}

void RunOperation(zrn::GDbArchiveImpl& ar, std::uint8_t op) {
  switch (op % 10) {
  case 0:
    ReadObjectWithBlocks(ar, op);
    break;
  case 1:
    ar.SkipObject();
    break;
  case 2: {
    std::string text;
    ar >> text;
    break;
  }
  case 3: {
    std::wstring text;
    ar >> text;
    break;
  }
  case 4: {
    void* data = nullptr;
    int size = 0;
    ar.ReadBytes(data, size);
    ::operator delete(data);
    break;
  }
  case 5: {
    char raw[16];
    ar.ReadRawData(raw, op % 17);
    break;
  }
  case 6: {
    long long a = 0;
    double b = 0;
    bool c = false;
    unsigned long d = 0;
    ar >> a >> b >> c;
    ar >> d;
    break;
  }
  case 7:
    ar.SeekPos(static_cast<signed char>(op), zrn::GDbArchive::SEEKFROM_CURRENT);
    break;
  case 8: {
    zrn::CVariant variant;
    variant.Serialize(ar);
    zrn::CVariant copy(variant); // a variant read from any bytes copies, converts
    (void)copy.toString();       // and releases safely
    break;
  }
  default:
    ar.RollbackReadObject(op);
    break;
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size == 0)
    return 0;
  const std::size_t scriptSize = std::min<std::size_t>(data[0], size - 1);
  std::uint8_t const* script = data + 1;
  std::string bytes(reinterpret_cast<char const*>(script + scriptSize), size - 1 - scriptSize);

  // Once over a read-only view of the input itself (positions kept as
  // given), once over an owned copy (positions clamped).
  zrn::GMemStream borrowed(reinterpret_cast<char const*>(script + scriptSize),
                           static_cast<unsigned int>(bytes.size()));
  zrn::GMemStream owned;
  owned.SetData(bytes.data(), static_cast<int>(bytes.size()));
  for (zrn::GIODevice* device :
       {static_cast<zrn::GIODevice*>(&borrowed), static_cast<zrn::GIODevice*>(&owned)}) {
    zrn::GDbArchiveImpl ar(device);
    for (std::size_t i = 0; i < scriptSize; ++i)
      RunOperation(ar, script[i]);
    ReadObjectWithBlocks(ar, 0);
  }
  return 0;
}
