#include <zrn/Store/PostgresDevice.h>
#include <zrn/Store/SqliteDevice.h>
#include <zrn/Store/StoreDevice.h>

#include <cwctype>

namespace zrn {
namespace {

bool StartsWithNoCase(std::wstring const& text, std::wstring_view prefix) {
  if (text.size() < prefix.size())
    return false;
  for (std::size_t i = 0; i < prefix.size(); ++i)
    if (std::towlower(static_cast<wint_t>(text[i])) != static_cast<wint_t>(prefix[i]))
      return false;
  return true;
}

} // namespace

bool IsServerStoreUrl(std::wstring const& pathOrUrl) {
  return StartsWithNoCase(pathOrUrl, L"postgresql://") ||
         StartsWithNoCase(pathOrUrl, L"postgres://");
}

GEntityStoreDevice* CreateStoreDevice(std::wstring const& pathOrUrl) {
  if (IsServerStoreUrl(pathOrUrl))
    return new GPostgresDevice;
  return new GSqliteDevice;
}

} // namespace zrn
