// Writes the inputs that check_inspect.py runs zrn-inspect on, into the
// folder given as the only argument: streams from the library's own
// writers, one of them cut short, and a project store.
#include <zrn/IO/DataIOFacade.h>
#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/MemStream.h>
#include <zrn/IO/TaggedObject.h>
#include <zrn/Object/Entity.h>
#include <zrn/Object/IBase.h>
#include <zrn/Object/Project.h>
#include <zrn/Property/PropertyCollection.h>
#include <zrn/Property/Variant.h>
#include <zrn/Store/SqliteDevice.h>
#include <zrn/Store/StoreFacade.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

using namespace zrn;

// What a beam's properties belong to: its class type selects the scheme.
class CBeamData : public IBase {
public:
  eGBMDataType GetObjectType() override { return static_cast<eGBMDataType>(2000); }
};

class CBeamImpl : public IBaseEntityImpl {
public:
  CBeamImpl() {
    properties.SetProperty(L"Width", CVariant(7));
    properties.SetProperty(L"Name", CVariant(std::string("beam")));
  }
  bool Serialize(GDbArchive& ar) override {
    GTaggedObject frame(ar, typeid(*this));
    if (ar.IsLoading())
      return frame.Read(1, [&](unsigned char tag) { return tag == 1 && properties.Serialize(ar); });
    return frame.Write(1, [&] { frame.Block(1, [&] { properties.Serialize(ar); }); });
  }

  CBeamData data;
  CPropertyCollection properties{&data};
};

class CBeam : public IBaseEntity {
public:
  IBaseEntityImpl* CreateBaseEntityImpl() override { return new CBeamImpl; }
};

void Save(std::filesystem::path const& path, GMemStream& stream) {
  std::ofstream(path, std::ios::binary)
      .write(stream.GetData(), static_cast<std::streamsize>(stream.GetDataSize()));
}

// Object a (version 2) holds object b in its block 1; b holds the int 7.
void WriteStreams(std::filesystem::path const& folder) {
  GMemStream stream(true, nullptr, 0);
  GDbArchiveImpl ar(&stream);
  const auto a = reinterpret_cast<void const*>(ar.CreateNewObjectID());
  const auto b = reinterpret_cast<void const*>(ar.CreateNewObjectID());
  ar.BeginWriteObject(a, 2);
  ar.BeginWriteBlock(1, a);
  ar.BeginWriteObject(b, 1);
  ar.BeginWriteBlock(5, b);
  ar << 7;
  ar.EndWriteBlock(5, b);
  ar.EndWriteObject(b);
  ar.EndWriteBlock(1, a);
  ar.EndWriteObject(a);
  Save(folder / "nested.bin", stream);
  CBeamImpl beam;
  beam.Serialize(ar);
  Save(folder / "beam.bin", stream);
  GMemStream cut(true, nullptr, 0);
  cut.Write(const_cast<char*>(stream.GetData()), 15);
  Save(folder / "cut.bin", cut);
}

// A project with one beam (id 2), saved through the store.
int WriteStore(std::filesystem::path const& folder) {
  GStoreFacade facade;
  facade.Types().Register<CBeam>(100);
  SetIOFacade(&facade);
  int result = 0;
  {
    IBaseProject project;
    project.SetProjectDBDevice(new GSqliteDevice);
    project.AddChild(new CBeam);
    project.SaveProject((folder / "store.zrndb").wstring());
    if (!facade.LastSaveSucceeded()) {
      std::fputs("the store was not saved\n", stderr);
      result = 1;
    }
  }
  SetIOFacade(nullptr);
  return result;
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: zrn_inspect_fixtures FOLDER\n", stderr);
    return 2;
  }
  const std::filesystem::path folder = argv[1];
  WriteStreams(folder);
  CPropertyCollection::ClearPropertyScheme();
  return WriteStore(folder);
}
