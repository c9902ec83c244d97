#include <zrn/System/CoreSystem.h>

#include "Platform/Platform.h"
#include "System/LocalTime.h"
#include "System/PathText.h"

#include <zrn/Profile/GLog/LogManager.h>

#include <boost/filesystem.hpp>

#include <cstdlib>
#include <ctime>
#include <new>
#include <vector>

namespace zrn {
namespace fs = boost::filesystem;

namespace {

// Module file names are cut to what a 520-character buffer holds.
constexpr std::size_t kModuleNameCapacity = 520;
constexpr std::size_t kProcessPathCapacity = 260;
constexpr std::size_t kMakeDirectoryCapacity = 256;
constexpr std::size_t kMemoryTestBlock = 102400;
constexpr int kBacktrackLevels = 10;

std::wstring ModuleName(std::string const& path) {
  std::wstring name = detail::FromSystemPath(path);
  if (name.size() > kModuleNameCapacity - 1)
    name.resize(kModuleNameCapacity - 1);
  return name;
}

// Everything up to and including the last separator; a name without one whole.
std::wstring FolderOf(std::wstring const& file) {
  const std::size_t last = file.find_last_of(L"\\/");
  return last == std::wstring::npos ? file : file.substr(0, last + 1);
}

std::wstring BacktrackFrom(std::wstring base, std::wstring const& folder) {
  const std::wstring suffix = folder + L"/";
  for (int level = 0; level < kBacktrackLevels; ++level) {
    const std::string candidate = detail::ToSystemPath(base + suffix);
    boost::system::error_code error;
    if (fs::is_directory(fs::path(candidate), error))
      return base + suffix;
    base += L"../";
  }
  return L"./" + suffix;
}

// Wide units in a UTF-8 text that came from ToSystemPath: one lead byte each.
std::size_t WideUnits(std::string const& utf8) {
  std::size_t units = 0;
  for (unsigned char c : utf8)
    units += (c & 0xC0) != 0x80;
  return units;
}

void LogCritical(std::string const& text) {
  CSingleton<CLogManager>::GetInstance().Log(text, LOG_LEVEL_CRITICAL);
}

} // namespace

GCoreSystem::~GCoreSystem() = default;

GCoreSystem* GCoreSystem::GetInstance() {
  static GCoreSystem instance;
  return &instance;
}

std::wstring GCoreSystem::GetExeFilePath() { return ModuleName(platform::ExecutablePath()); }

void GCoreSystem::GetExeFilePath(std::wstring& path) { path = GetExeFilePath(); }

std::wstring GCoreSystem::GetExePath() { return FolderOf(GetExeFilePath()); }

void GCoreSystem::GetExePath(std::wstring& path) { path = GetExePath(); }

std::wstring GCoreSystem::GetCommonDllPath() {
  static const int anchor = 0; // any address inside this library
  return FolderOf(ModuleName(platform::ModulePathOf(&anchor)));
}

std::wstring GCoreSystem::BacktrackFolderOnExePath(std::wstring const& folder) {
  return BacktrackFrom(GetExePath(), folder);
}

std::wstring GCoreSystem::BacktrackFolderOnCommonDLLPath(std::wstring const& folder) {
  return BacktrackFrom(GetCommonDllPath(), folder);
}

std::wstring GCoreSystem::GetResourcePath(std::wstring const& folder) {
  return BacktrackFolderOnExePath(folder);
}

std::wstring GCoreSystem::GetWindowsPath() { return L"/usr"; }

void GCoreSystem::CurrentDirectory(std::wstring& path) {
  path = detail::FromSystemPath(fs::current_path().string());
}

bool GCoreSystem::IsDirectoryExist(std::wstring const& path) {
  const fs::file_status status = fs::status(fs::path(detail::ToSystemPath(path)));
  return status.type() != fs::status_error && status.type() != fs::file_not_found &&
         status.type() == fs::directory_file;
}

bool GCoreSystem::IsFileExist(std::wstring const& path) {
  const fs::file_status status = fs::status(fs::path(detail::ToSystemPath(path)));
  return status.type() != fs::status_error && status.type() != fs::file_not_found;
}

bool GCoreSystem::MakeDirectory(std::wstring const& path) {
  try {
    return fs::create_directory(fs::path(detail::ToSystemPath(path)));
  } catch (fs::filesystem_error const& error) {
    LogCritical(error.what());
    return false;
  }
}

bool GCoreSystem::DeleteDirectory(std::wstring const& path) {
  try {
    if (!IsDirectoryExist(path))
      return false;
    return fs::remove_all(fs::path(detail::ToSystemPath(path))) > 0;
  } catch (fs::filesystem_error const& error) {
    LogCritical(error.what());
    return false;
  }
}

bool GCoreSystem::DeleteFileWithPath(std::wstring const& path) {
  return fs::remove(fs::path(detail::ToSystemPath(path)));
}

bool GCoreSystem::CopyFileTo(std::wstring const& from, std::wstring const& to, bool overwrite) {
  const std::wstring folder = GetPath(to);
  try {
    if (!folder.empty() && !IsDirectoryExist(folder) && !MakeDirectory(folder)) {
      CSingleton<CLogManager>::GetInstance().Log(L"Create output file path failed: " + folder,
                                                 LOG_LEVEL_CRITICAL);
      return false;
    }
  } catch (fs::filesystem_error const&) {
    return false; // the folder cannot even be examined
  }
  boost::system::error_code error;
  fs::copy_file(fs::path(detail::ToSystemPath(from)), fs::path(detail::ToSystemPath(to)),
                overwrite ? fs::copy_options::overwrite_existing : fs::copy_options::none, error);
  return !error;
}

// Boost works on the path with every "\" read as "/"; its answers are a
// prefix or suffix of that text, so they are cut from the caller's own text
// and keep its separators.
std::wstring GCoreSystem::GetFileName(std::wstring const& path) {
  const std::string system = detail::ToSystemPath(path);
  const std::string name = fs::path(system).filename().string();
  if (system.size() >= name.size() &&
      system.compare(system.size() - name.size(), name.size(), name) == 0)
    return path.substr(path.size() - WideUnits(name));
  return detail::FromSystemPath(name);
}

std::wstring GCoreSystem::GetPath(std::wstring const& path) {
  const std::string parent = fs::path(detail::ToSystemPath(path)).parent_path().string();
  return path.substr(0, WideUnits(parent));
}

void GCoreSystem::SplitFilePath(std::wstring const& path, std::wstring& folder,
                                std::wstring& name) {
  folder = GetPath(path);
  name = GetFileName(path);
}

std::wstring GCoreSystem::CombinePath(std::wstring const& a, std::wstring const& b) {
  if (a.empty())
    return b;
  if (b.empty())
    return a;
  const bool aEnds = detail::IsPathSeparator(a.back());
  const bool bBegins = detail::IsPathSeparator(b.front());
  if (aEnds != bBegins)
    return a + b;
  if (!aEnds)
    return a + L"\\" + b;
  return a.substr(0, a.size() - 1) + b;
}

bool GCoreSystem::IsAbsolutePath(std::wstring const& path) {
  const std::size_t n = path.size();
  if (n >= 3 && path[1] == L':' && detail::IsPathSeparator(path[2]))
    return true;
  if (n >= 3 && path[0] == L'\\' && path[1] == L'\\')
    return true;
  return n >= 11 && path.compare(0, 8, L"file:///") == 0 && path[9] == L':' &&
         detail::IsPathSeparator(path[10]);
}

std::wstring GCoreSystem::GetLocalTimeWString() {
  const std::string text = detail::IsoBasicText(std::time(nullptr));
  return std::wstring(text.begin(), text.end());
}

int GCoreSystem::GetParentProcessID() { return platform::ParentProcessId(); }

std::string GCoreSystem::GetProcessPath(int pid) {
  return platform::ProcessExecutablePath(pid, kProcessPathCapacity);
}

bool CSystemHelper::FileExists(std::wstring const& path) {
  return platform::PathExists(detail::ToSystemPath(path));
}

bool CSystemHelper::MakeDirectory(std::wstring const& path) {
  if (path.empty())
    return false;
  std::wstring text = path;
  if (!detail::IsPathSeparator(text.back()))
    text += L'/';
  if (text.size() > kMakeDirectoryCapacity - 1)
    return false; // would not fit the working buffer with its terminator
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (!detail::IsPathSeparator(text[i]))
      continue;
    const std::string prefix = detail::ToSystemPath(std::wstring_view(text).substr(0, i));
    if (!platform::PathExists(prefix) && !platform::MakeOneDirectory(prefix))
      return false;
    text[i] = L'/';
  }
  return true;
}

bool CSystemHelper::TryAllocMem(int size) {
  const std::size_t blocks = static_cast<std::uint32_t>(size) / kMemoryTestBlock;
  if (blocks == 0)
    return true;
  // Blocks that malloc grants on an overcommitting system may have nothing
  // behind them, so the size must also fit what the system can still back.
  if (blocks * kMemoryTestBlock > platform::AvailableMemoryBytes())
    return false;
  std::vector<void*> obtained;
  bool result = true;
  try {
    obtained.reserve(blocks);
    for (std::size_t i = 0; i < blocks && result; ++i) {
      void* block = std::malloc(kMemoryTestBlock);
      if (block)
        obtained.push_back(block);
      else
        result = false;
    }
  } catch (std::exception const&) {
    result = false;
  }
  for (void* block : obtained)
    std::free(block);
  return result;
}

} // namespace zrn
