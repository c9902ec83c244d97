// Loads projects from store files made of arbitrary bytes. Whatever a file
// holds, loading gives a project or null with an error, never a crash, a
// hang or an allocation the file cannot justify; a loaded project reads all
// its data and takes a save.
//
// Input: a whole database file when it starts with SQLite's header or is
// larger than a row's worth; otherwise the archived data of one entity row
// in an otherwise valid store.
#include <zrn/IO/TaggedObject.h>
#include <zrn/Object/Project.h>
#include <zrn/Store/SqliteDevice.h>
#include <zrn/Store/StoreFacade.h>

#include "Support/TempFolder.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

// An impl that reads every kind of value an archive offers.
class CFuzzImpl : public zrn::IBaseEntityImpl {
public:
  bool Serialize(zrn::GDbArchive& ar) override {
    zrn::GTaggedObject object(ar, typeid(*this));
    if (!ar.IsLoading())
      return object.Write(1, [&] {
        object.Block(1, [&] { ar << text; });
        object.Block(2, [&] { ar << wide << number; });
        object.Block(3, [&] { ar.WriteBytes(bytes.data(), static_cast<int>(bytes.size())); });
      });
    return object.Read(1, [&](unsigned char tag) {
      if (tag == 1)
        ar >> text;
      else if (tag == 2)
        ar >> wide >> number;
      else if (tag == 3)
        ReadBytes(ar);
      return tag >= 1 && tag <= 3;
    });
  }

  std::string text;
  std::wstring wide;
  double number = 0;
  std::vector<char> bytes;

private:
  void ReadBytes(zrn::GDbArchive& ar) {
    void* data = nullptr;
    int size = 0;
    ar.ReadBytes(data, size);
    if (data)
      bytes.assign(static_cast<char*>(data), static_cast<char*>(data) + size);
    ::operator delete(data);
  }
};

class CFuzzEntity : public zrn::IBaseEntity {
public:
  zrn::IBaseEntityImpl* CreateBaseEntityImpl() override { return new CFuzzImpl; }
};

constexpr std::size_t kRowInputLimit = 4096;
constexpr int kFuzzType = 100;
// The child of row 2 under the root.
constexpr long long kFuzzedRow = 3;

// The facade, a folder, and a store whose row kFuzzedRow takes the input.
struct Setup {
  Setup() {
    facade.Types().Register<CFuzzEntity>(kFuzzType);
    zrn::SetIOFacade(&facade);
    zrn::IBaseProject project;
    auto* parent = new CFuzzEntity;
    project.AddChild(parent);
    parent->AddChild(new CFuzzEntity); // kFuzzedRow
    project.AddChild(new CFuzzEntity);
    project.SetProjectDBDevice(new zrn::GSqliteDevice);
    project.SaveProject(rowStore);
  }
  ~Setup() { zrn::SetIOFacade(nullptr); }

  zrn::GStoreFacade facade;
  zrn::test::TempFolder folder;
  std::wstring rowStore = folder.Wide("row.db");
  std::wstring fileStore = folder.Wide("file.db");
};

// Loads `path` eagerly or lazily, reads every impl, and saves a change.
void LoadAndUse(Setup& setup, std::wstring const& path, bool eager) {
  setup.facade.SetEagerLoad(eager);
  auto* device = new zrn::GSqliteDevice;
  std::unique_ptr<zrn::IBaseProject> project(zrn::IBaseProject::LoadProject(0, path, device));
  if (!project) {
    delete device;
    return;
  }
  std::vector<zrn::IBaseEntity*> all;
  zrn::IBaseEntity::GetAllLeafChild(project.get(), all);
  for (zrn::IBaseEntity* entity : all)
    entity->GetBaseEntityImpl(true);
  if (all.size() > 1)
    all[1]->SetObjectFlag(true, zrn::EGOBJECT_FLAG_MODIFIED);
  project->SaveProject(path);
}

void WriteFile(std::filesystem::path const& path, std::uint8_t const* data, std::size_t size) {
  // A journal left by the previous input would be replayed into this one.
  std::filesystem::remove(path.string() + "-wal");
  std::filesystem::remove(path.string() + "-shm");
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<char const*>(data), static_cast<std::streamsize>(size));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static Setup setup;
  static constexpr char kHeader[] = "SQLite format 3";
  const bool wholeFile = size > kRowInputLimit || (size >= sizeof kHeader &&
                                                   std::memcmp(data, kHeader, sizeof kHeader) == 0);
  if (wholeFile) {
    WriteFile(setup.fileStore, data, size);
    LoadAndUse(setup, setup.fileStore, true);
    return 0;
  }
  {
    zrn::GSqliteDevice device;
    zrn::SEntityRow row;
    row.id = kFuzzedRow;
    row.parentId = kFuzzedRow - 1;
    row.type = kFuzzType;
    row.data = reinterpret_cast<char const*>(data);
    row.size = static_cast<unsigned>(size);
    if (!device.Open(setup.rowStore) || !device.BeginTransaction() || !device.WriteRow(row) ||
        !device.CommitTransaction()) {
      std::fprintf(stderr, "the row store is broken: %s\n", device.LastError().c_str());
      __builtin_trap();
    }
  }
  LoadAndUse(setup, setup.rowStore, true);
  LoadAndUse(setup, setup.rowStore, false);
  return 0;
}
