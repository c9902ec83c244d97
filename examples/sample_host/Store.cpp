#include "Store.h"

#include "FrameObjects.h"

#include <zrn/Store/SqliteDevice.h>

#include <algorithm>
#include <fstream>

namespace {

std::filesystem::path WithSuffix(std::filesystem::path path, char const* suffix) {
  return path += suffix;
}

bool IsSqliteFile(std::filesystem::path const& path) {
  static constexpr char kHeader[] = "SQLite format 3"; // and its terminating zero
  char header[sizeof kHeader] = {};
  std::ifstream in(path, std::ios::binary);
  return in.read(header, sizeof header) && std::equal(header, header + sizeof header, kHeader);
}

} // namespace

void RegisterFrameTypes(zrn::CEntityTypeRegistry& types) {
  types.Register<CParameters>(kParametersType);
  types.Register<CBay>(kBayType);
  types.Register<CColumn>(kColumnType);
  types.Register<CBeam>(kBeamType);
  types.Register<CBrace>(kBraceType);
  types.Register<CTotals>(kTotalsType);
}

bool ClearStore(std::filesystem::path const& path, std::string& error) {
  std::error_code status;
  if (!std::filesystem::exists(path, status))
    return true;
  if (!IsSqliteFile(path)) {
    error = path.string() + " exists and is not an SQLite database: not replaced";
    return false;
  }
  for (char const* suffix : {"", "-wal", "-shm"})
    std::filesystem::remove(WithSuffix(path, suffix), status);
  return true;
}

bool SaveToStore(zrn::IBaseProject& project, std::filesystem::path const& path,
                 zrn::GStoreFacade const& facade, std::string& error) {
  if (project.GetProjectDBDevice() == nullptr)
    project.SetProjectDBDevice(new zrn::GSqliteDevice);
  project.SaveProject(path.wstring());
  if (facade.LastSaveSucceeded())
    return true;
  auto* device = dynamic_cast<zrn::GEntityStoreDevice*>(project.GetProjectDBDevice());
  error = "saving to " + path.string() + " failed: " + (device ? device->LastError() : "no store");
  return false;
}

std::unique_ptr<zrn::IBaseProject> LoadFromStore(std::filesystem::path const& path,
                                                 std::string& error) {
  auto device = std::make_unique<zrn::GSqliteDevice>();
  std::unique_ptr<zrn::IBaseProject> project(
      zrn::IBaseProject::LoadProject(0, path.wstring(), device.get()));
  if (project == nullptr) {
    error = "loading " + path.string() + " failed: " +
            (device->LastError().empty() ? "no project in the store" : device->LastError());
    return nullptr;
  }
  device.release(); // the project owns it now
  return project;
}

SStoreSize StoreSize(std::filesystem::path const& path) {
  auto sizeOf = [](std::filesystem::path const& file) {
    std::error_code status;
    std::uintmax_t const size = std::filesystem::file_size(file, status);
    return status ? 0 : size;
  };
  return {sizeOf(path), sizeOf(WithSuffix(path, "-wal"))};
}
