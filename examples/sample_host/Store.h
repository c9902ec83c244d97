// The sample host's use of the project store: one SQLite file per project, or
// a PostgreSQL server when --db is a postgresql:// URL.
#ifndef ZRN_EXAMPLES_SAMPLE_HOST_STORE_H
#define ZRN_EXAMPLES_SAMPLE_HOST_STORE_H

#include <zrn/Object/Project.h>
#include <zrn/Store/StoreFacade.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

/// Registers the frame's entity classes with the store's type registry.
void RegisterFrameTypes(zrn::CEntityTypeRegistry& types);

/// True when `where` names a server store (a postgresql:// URL) rather than a
/// file.
bool IsServerStore(std::filesystem::path const& where);

/// `where` as the run prints it: a server URL without its password.
std::wstring ShownStore(std::filesystem::path const& where);

/// Removes the store at `path` (and its write-ahead log) so that a new one
/// starts there. A file that is not an SQLite database is left alone: false
/// with `error` saying so. A server store needs nothing: the first save of a
/// new project into it replaces what it holds.
bool ClearStore(std::filesystem::path const& path, std::string& error);

/// Saves `project` to the store at `path`, giving it a device on its first
/// save. Only what changed since the last save is written. False with
/// `error` when the save did not commit.
bool SaveToStore(zrn::IBaseProject& project, std::filesystem::path const& path,
                 zrn::GStoreFacade const& facade, std::string& error);

/// Loads the project stored at `path` into a fresh project that owns its
/// device; null with `error` when it cannot.
std::unique_ptr<zrn::IBaseProject> LoadFromStore(std::filesystem::path const& path,
                                                 std::string& error);

/// The bytes a store takes on disk: its file, and its write-ahead log, which
/// SQLite folds into the file at a checkpoint (at the latest when the store
/// closes).
struct SStoreSize {
  std::uintmax_t file = 0;
  std::uintmax_t log = 0;
};
SStoreSize StoreSize(std::filesystem::path const& path);

#endif
