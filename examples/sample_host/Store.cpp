#include "Store.h"

#include "FrameObjects.h"

#include <zrn/Store/StoreDevice.h>

#include <algorithm>
#include <fstream>

namespace {

std::filesystem::path WithSuffix(std::filesystem::path path, char const* suffix) {
  return path += suffix;
}

std::string Narrow(std::wstring const& text) { return std::filesystem::path(text).string(); }

bool IsSqliteFile(std::filesystem::path const& path) {
  static constexpr char kHeader[] = "SQLite format 3"; // and its terminating zero
  char header[sizeof kHeader] = {};
  std::ifstream in(path, std::ios::binary);
  return in.read(header, sizeof header) && std::equal(header, header + sizeof header, kHeader);
}

} // namespace

bool IsServerStore(std::filesystem::path const& where) {
  return zrn::IsServerStoreUrl(where.wstring());
}

std::wstring ShownStore(std::filesystem::path const& where) {
  std::wstring text = where.wstring();
  if (!IsServerStore(where))
    return text;
  std::size_t const user = text.find(L"://") + 3;
  std::size_t const at = text.find(L'@', user);
  std::size_t const colon = text.find(L':', user);
  if (at != std::wstring::npos && colon < at)
    text.erase(colon, at - colon);
  return text;
}

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
  if (IsServerStore(path) || !std::filesystem::exists(path, status))
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
    project.SetProjectDBDevice(zrn::CreateStoreDevice(path.wstring()));
  project.SaveProject(path.wstring());
  if (facade.LastSaveSucceeded())
    return true;
  auto* device = dynamic_cast<zrn::GEntityStoreDevice*>(project.GetProjectDBDevice());
  error = "saving to " + Narrow(ShownStore(path)) + " failed: " + (device ? device->LastError() : "no store");
  return false;
}

std::unique_ptr<zrn::IBaseProject> LoadFromStore(std::filesystem::path const& path,
                                                 std::string& error) {
  std::unique_ptr<zrn::GEntityStoreDevice> device(zrn::CreateStoreDevice(path.wstring()));
  std::unique_ptr<zrn::IBaseProject> project(
      zrn::IBaseProject::LoadProject(0, path.wstring(), device.get()));
  if (project == nullptr) {
    error = "loading " + Narrow(ShownStore(path)) + " failed: " +
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
