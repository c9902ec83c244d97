// Picks the project store a host's "where" names: a PostgreSQL connection URL
// or the path of an SQLite file.
#ifndef ZRN_STORE_STOREDEVICE_H
#define ZRN_STORE_STOREDEVICE_H

#include <zrn/Store/EntityStoreDevice.h>
#include <zrn/Store/StoreExport.h>

#include <string>

namespace zrn {

/// True when `pathOrUrl` starts with "postgresql://" or "postgres://" (in any
/// case): a server store rather than a file.
ZRN_STORE_API bool IsServerStoreUrl(std::wstring const& pathOrUrl);

/// A new, unopened device for `pathOrUrl`: a GPostgresDevice for a server URL
/// (IsServerStoreUrl), else a GSqliteDevice for a file path. The caller owns
/// it (usually handing it on to a project or to LoadProject) and opens it
/// with the same text:
///
///   zrn::GEntityStoreDevice* device = zrn::CreateStoreDevice(where);
///   zrn::IBaseProject* project = zrn::IBaseProject::LoadProject(0, where, device);
ZRN_STORE_API GEntityStoreDevice* CreateStoreDevice(std::wstring const& pathOrUrl);

} // namespace zrn

#endif // ZRN_STORE_STOREDEVICE_H
