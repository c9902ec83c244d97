// The library's dealings with the file system and the process: where the
// executable and the library lie, resource folders near them, tests for and
// creation, deletion and copying of files and folders, path pieces, the local
// time as text, the parent process, and process memory reports.
//
// Paths are wide strings. Both "\" and "/" count as separators; paths reach
// the operating system in UTF-8 with every "\" read as "/".
#ifndef ZRN_SYSTEM_CORESYSTEM_H
#define ZRN_SYSTEM_CORESYSTEM_H

#include <zrn/Export.h>

#include <cstdint>
#include <ostream>
#include <string>

namespace zrn {

/// The process memory counters the reports show, sizes in bytes. Counters the
/// system has no figure for are 0.
struct sProcessMemoryCounters {
  std::uint32_t PageFaultCount = 0;
  std::uint64_t PeakWorkingSetSize = 0;
  std::uint64_t WorkingSetSize = 0;
  std::uint64_t QuotaPeakPagedPoolUsage = 0;
  std::uint64_t QuotaPagedPoolUsage = 0;
  std::uint64_t QuotaPeakNonPagedPoolUsage = 0;
  std::uint64_t QuotaNonPagedPoolUsage = 0;
  std::uint64_t PagefileUsage = 0;
  std::uint64_t PeakPagefileUsage = 0;
};

/// Where the memory reports take their figures from. A null member stands for
/// the system's own source.
struct sProcessMemorySource {
  /// Fills the counters; false when they cannot be read.
  bool (*ReadCounters)(sProcessMemoryCounters& counters) = nullptr;
  /// The bytes of heap in use; false when the heap cannot be walked.
  bool (*ReadHeapInUse)(std::uint64_t& bytes) = nullptr;
};

/// Reads the current process's memory counters through the installed source.
ZRN_API bool ReadProcessMemoryCounters(sProcessMemoryCounters& counters);

/// Installs `source` for the memory reports and returns the previous one.
/// Meant for tests and for hosts that keep their own figures.
ZRN_API sProcessMemorySource SetProcessMemorySource(sProcessMemorySource source);

/// File-system and process operations; every operation is static.
///
/// Holds no data; thread-safe as far as the file system is.
class ZRN_API GCoreSystem {
public:
  GCoreSystem() = default;
  GCoreSystem(GCoreSystem const&) = default;
  GCoreSystem& operator=(GCoreSystem const&) = default;
  virtual ~GCoreSystem();

  /// The one instance, created on first use; no operation needs it.
  static GCoreSystem* GetInstance();

  /// Full path of the host executable.
  static std::wstring GetExeFilePath();
  static void GetExeFilePath(std::wstring& path);
  /// Folder of the host executable, with its trailing separator.
  static std::wstring GetExePath();
  static void GetExePath(std::wstring& path);
  /// Folder of this library's own file, with its trailing separator.
  static std::wstring GetCommonDllPath();

  /// Searches for `folder` in the executable's folder and up to nine levels
  /// above it ("<exe folder>folder/", "<exe folder>../folder/", ...); the
  /// first candidate that is a folder, or "./folder/" when none is.
  static std::wstring BacktrackFolderOnExePath(std::wstring const& folder);
  /// The same search from this library's folder.
  static std::wstring BacktrackFolderOnCommonDLLPath(std::wstring const& folder);
  /// Exactly BacktrackFolderOnExePath(folder).
  static std::wstring GetResourcePath(std::wstring const& folder);
  /// The system folder, "/usr" here (no trailing separator).
  static std::wstring GetWindowsPath();

  /// The current working folder. Throws boost::filesystem::filesystem_error.
  static void CurrentDirectory(std::wstring& path);
  /// Whether `path` is an existing folder. Errors other than a missing path
  /// throw boost::filesystem::filesystem_error.
  static bool IsDirectoryExist(std::wstring const& path);
  /// Whether `path` exists (folders count). Throws as IsDirectoryExist.
  static bool IsFileExist(std::wstring const& path);
  /// Creates one folder level: true when created, false when it existed; a
  /// failure is logged as critical and gives false.
  static bool MakeDirectory(std::wstring const& path);
  /// Deletes a folder and its contents: whether anything was removed; false
  /// for a path that is not a folder; a failure is logged and gives false.
  static bool DeleteDirectory(std::wstring const& path);
  /// Deletes one file or empty folder: false when it did not exist. Other
  /// failures throw boost::filesystem::filesystem_error.
  static bool DeleteFileWithPath(std::wstring const& path);
  /// Copies `from` to `to`, creating `to`'s folder (one level) first; with
  /// `overwrite` false an existing target makes it fail. A target without a
  /// folder goes to the current one.
  static bool CopyFileTo(std::wstring const& from, std::wstring const& to, bool overwrite);

  /// The last element of `path`.
  static std::wstring GetFileName(std::wstring const& path);
  /// `path` without its last element.
  static std::wstring GetPath(std::wstring const& path);
  /// `folder` = GetPath(path), `name` = GetFileName(path).
  static void SplitFilePath(std::wstring const& path, std::wstring& folder, std::wstring& name);
  /// Joins two pieces with exactly one separator ("\" when neither has one).
  static std::wstring CombinePath(std::wstring const& a, std::wstring const& b);
  /// A drive path ("C:/x"), a network path ("\\server\share") or a file URL
  /// with a drive ("file:///C:/x"). A rule of the stored text, not of this
  /// system: "/x" is not absolute.
  static bool IsAbsolutePath(std::wstring const& path);

  /// The local date and time as "yyyymmddThhmmss". Throws std::runtime_error
  /// when the time cannot be converted to local time.
  static std::wstring GetLocalTimeWString();
  /// The parent of the current process, -1 when not found.
  static int GetParentProcessID();
  /// The executable of process `pid` (at most 259 bytes), empty on failure.
  static std::string GetProcessPath(int pid);

  /// The working set in KiB; 0 when the counters cannot be read.
  static std::uint64_t GetWorkingSetKB();
  /// The C heap in use in KiB; 0 when it cannot be read.
  static std::uint64_t GetAllocatedHeapKB();
  /// Writes the table of all nine counters; nothing when they cannot be read.
  static void DumpProcessMemory(std::basic_ostream<wchar_t>& out);
  /// Writes the short table: three counters and the heap in use.
  static void DumpSimpleProcessMemory(std::basic_ostream<wchar_t>& out);
  /// Logs the full table at LOG_LEVEL_NORMAL.
  static void DumpProcessMemory();
};

/// Small helpers on the C runtime; every operation is static.
class ZRN_API CSystemHelper {
public:
  CSystemHelper& operator=(CSystemHelper const&) = default;

  /// Whether `path` exists.
  static bool FileExists(std::wstring const& path);
  /// Creates every missing level of `path`. False for an empty path, for a
  /// path that with a final separator does not fit 255 characters, and when
  /// a level cannot be created.
  static bool MakeDirectory(std::wstring const& path);
  /// Whether `size` bytes (read as unsigned 32-bit) can be obtained from the
  /// heap and backed by memory: they must fit what the system can still back
  /// (available memory and swap, within the process's memory limit) and be
  /// allocatable in blocks of 100 KiB. Sizes below one block give true.
  static bool TryAllocMem(int size);
};

} // namespace zrn

#endif // ZRN_SYSTEM_CORESYSTEM_H
