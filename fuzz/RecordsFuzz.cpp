// Feeds arbitrary bytes to the readers of stored records. Whatever the bytes
// claim, reading must stay inside the stream, allocate no more than it could
// hold, end, and leave the process-wide tables consistent.
//
// Input: a selector byte choosing the reader, then that reader's input.
// Selector 1 reads project records: the stream holds up to three records in
// a row, each read into a project.
// Selector values that no reader claims go to the property-collection reader,
// so that every input exercises something.
//
// Property collections: a script byte, then the stream. The script's low two
// bits give the number of collections read in a row (1 to 4), bits 2 to 5 the
// class of each (one of two), bit 6 whether the process already has a scheme
// of its own for the first class (so that stream ids get translated rather
// than adopted), bit 7 whether it has a second product of its own.
#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/MemStream.h>
#include <zrn/Object/IBase.h>
#include <zrn/Object/Project.h>
#include <zrn/Property/PropertyCollection.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using zrn::CPropertyCollection;

enum Reader : std::uint8_t {
  kPropertyCollections = 0,
  kProjectRecords = 1,
};

class Thing : public zrn::IBase {
public:
  explicit Thing(int type) : m_nType(type) {}
  zrn::eGBMDataType GetObjectType() override { return static_cast<zrn::eGBMDataType>(m_nType); }

private:
  int m_nType;
};

// The invariants a read must keep, whatever it read.
void CheckSchemes() {
  for (auto const& [type, classScheme] : CPropertyCollection::m_mapAllClassScheme) {
    for (auto const& [product, scheme] : classScheme.m_mapProductScheme) {
      if (scheme.m_mapIDToName.size() != scheme.m_mapNameToID.size())
        std::abort();
      for (auto const& [id, name] : scheme.m_mapIDToName) {
        const auto back = scheme.m_mapNameToID.find(name);
        if (id.m_nIndex == 0 || back == scheme.m_mapNameToID.end() || !(back->second == id))
          std::abort();
      }
    }
  }
}

void ReadCollections(std::uint8_t script, zrn::GIODevice& device) {
  CPropertyCollection::ClearPropertyScheme();
  Thing first(9001), second(9002);
  Thing* const things[] = {&first, &second};
  if (script & 0x80) {
    CPropertyCollection other(&second);
    other.SetActiveProduct(L"OTHER");
  }
  if (script & 0x40) {
    CPropertyCollection own(&first);
    own.SetProperty(L"b", zrn::CVariant(1));
    own.SetProperty(L"own", zrn::CVariant(2));
  }

  std::vector<CPropertyCollection> collections;
  const int count = 1 + (script & 3);
  for (int i = 0; i < count; ++i)
    collections.emplace_back(things[(script >> (2 + i)) & 1]);
  zrn::GDbArchiveImpl ar(&device);
  for (CPropertyCollection& collection : collections)
    collection.Serialize(ar);
  CheckSchemes();

  // Whatever was read must iterate, copy and write back.
  zrn::GMemStream out(true, nullptr, 0);
  zrn::GDbArchiveImpl writer(&out);
  for (CPropertyCollection& collection : collections) {
    std::wstring product, name;
    zrn::CVariant value;
    collection.First();
    while (collection.Next(product, name, value)) {
    }
    CPropertyCollection copy(collection);
    copy.Serialize(writer);
  }
  CPropertyCollection::ClearPropertyScheme();
}

void RunPropertyCollections(std::uint8_t const* data, std::size_t size) {
  if (size == 0)
    return;
  const std::uint8_t script = data[0];
  std::string bytes(reinterpret_cast<char const*>(data + 1), size - 1);
  // Once over a caller's buffer (positions kept as given), once over an owned
  // copy (positions clamped).
  zrn::GMemStream borrowed(false, bytes.data(), static_cast<unsigned int>(bytes.size()));
  ReadCollections(script, borrowed);
  zrn::GMemStream owned;
  if (!bytes.empty())
    owned.SetData(bytes.data(), static_cast<int>(bytes.size()));
  ReadCollections(script, owned);
}

// Reports nothing, so that only the reading itself is exercised.
class QuietArchive : public zrn::GDbArchiveImpl {
public:
  using GDbArchiveImpl::GDbArchiveImpl;
  void ErrorMsgBox(std::string, std::string) override {}
};

void RunProjectRecords(std::uint8_t const* data, std::size_t size) {
  std::string bytes(reinterpret_cast<char const*>(data), size);
  zrn::GMemStream stream(false, bytes.data(), static_cast<unsigned int>(bytes.size()));
  QuietArchive ar(&stream);
  const int shown = zrn::g_nSerializeErrorMsgBoxMaxCount;
  for (int i = 0; i < 3 && ar.DevicePos() < static_cast<long long>(bytes.size()); ++i) {
    zrn::IBaseProject project;
    project.Serialize(ar);
  }
  zrn::g_nSerializeErrorMsgBoxMaxCount = shown;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size == 0)
    return 0;
  switch (data[0]) {
  case kProjectRecords:
    RunProjectRecords(data + 1, size - 1);
    break;
  case kPropertyCollections:
  default:
    RunPropertyCollections(data + 1, size - 1);
    break;
  }
  return 0;
}
