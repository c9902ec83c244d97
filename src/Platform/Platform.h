// The library's platform layer: the only place that talks to Linux directly.
// Everything else reaches the operating system through these functions or the
// public System/Debugger.h and System/MessageBox.h.
#ifndef ZRN_SRC_PLATFORM_PLATFORM_H
#define ZRN_SRC_PLATFORM_PLATFORM_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <zrn/System/CoreSystem.h>

namespace zrn::platform {

// --- Thread-local slots -----------------------------------------------------

/// The index that AllocThreadSlot returns when no slot can be had.
constexpr unsigned kNoThreadSlot = 0xFFFFFFFFu;

/// A new thread-local slot, null on every thread; kNoThreadSlot on failure.
unsigned AllocThreadSlot();
/// The calling thread's value of `slot` (null for kNoThreadSlot).
void* GetThreadSlot(unsigned slot);
/// Sets the calling thread's value of `slot`; false for kNoThreadSlot.
bool SetThreadSlot(unsigned slot, void* value);

/// Makes sure that the library's thread-detach work runs when the calling
/// thread ends. Cheap after the first call on a thread.
void WatchThreadExit();

// --- Memory -----------------------------------------------------------------

/// Size and alignment of large blocks: one huge page.
constexpr std::size_t kLargeBlockSize = std::size_t{2} << 20;

/// The most bytes of released large blocks kept for reuse, process-wide.
constexpr std::size_t kLargeBlockCacheBytes = std::size_t{256} << 20;

/// A block of kLargeBlockSize bytes, aligned to its size and backed by huge
/// pages where the system allows; null when no memory can be had. Its bytes
/// are unspecified: a block released before is handed out again as it is,
/// already in memory, so that filling it costs no page faults. Thread-safe.
void* AcquireLargeBlock();
/// Gives back a block from AcquireLargeBlock. Up to kLargeBlockCacheBytes of
/// released blocks are kept for reuse, marked so that the kernel may reclaim
/// their memory whenever it runs short (they are then zero when reused); the
/// rest are unmapped. Thread-safe.
void ReleaseLargeBlock(void* block);

// --- Debugger ---------------------------------------------------------------

/// Like IsDebuggerAttached, but re-reads the process status at most about once
/// a second, for callers on hot paths.
bool IsDebuggerAttachedRecently();

/// Sends UTF-8 text to the debugger output (handler or default sink).
void OutputDebugUtf8(std::string_view text);

/// True when OutputDebugUtf8 would deliver text anywhere right now, so that
/// callers can skip preparing it.
bool DebugOutputWanted();

/// Writes `text` to standard error, unbuffered.
void WriteStandardError(std::string_view text);

/// Sends `text` to an installed debugger-output handler, if any, and to
/// standard error: for failures of the library's own outputs, which must be
/// seen whether or not a debugger is attached. Standard error gets it once.
void ReportToDebuggerAndStandardError(std::string_view text);

// --- Clock ------------------------------------------------------------------

/// Ticks per second of ReadPerformanceCounter (the counter is in nanoseconds).
constexpr std::int64_t kPerformanceFrequency = 1000000000;

/// The monotonic counter, in nanoseconds; false when it cannot be read.
bool ReadPerformanceCounter(std::int64_t& counter);
/// The counter's frequency; false when it cannot be read.
bool ReadPerformanceFrequency(std::int64_t& frequency);

// --- Files and processes ----------------------------------------------------
// Paths are UTF-8.

/// The executable's path (/proc/self/exe); empty on failure.
std::string ExecutablePath();
/// The path of the module file that contains `address`; empty on failure.
std::string ModulePathOf(void const* address);
/// Whether `path` exists (any kind of file).
bool PathExists(std::string const& path);
/// Creates one folder level; false on failure.
bool MakeOneDirectory(std::string const& path);
/// The parent of the current process from /proc; -1 when it cannot be read.
int ParentProcessId();
/// The executable of process `pid`, at most `capacity - 1` bytes of it (as a
/// buffer of `capacity` bytes with its terminator would hold); empty on
/// failure.
std::string ProcessExecutablePath(int pid, std::size_t capacity);
/// Bytes the system can still back with memory for this process: available
/// memory and free swap, bounded by the process's memory cgroup limit.
std::uint64_t AvailableMemoryBytes();

// --- Process memory ---------------------------------------------------------

/// Fills the nine counters from /proc/self/status and /proc/self/stat.
bool ReadProcessMemoryCounters(sProcessMemoryCounters& counters);
/// Bytes of heap in use by the C allocator (mallinfo2).
bool ReadHeapInUse(std::uint64_t& bytes);

// --- Thread timers ----------------------------------------------------------

/// The procedure a thread timer calls: window (always null), message number,
/// timer identifier, message time in milliseconds of the monotonic clock.
using TimerProcedure = void (*)(void* window, unsigned message, std::uintptr_t id,
                                unsigned long time);

/// The message number passed to timer procedures.
constexpr unsigned kTimerMessage = 0x0113;
/// Shortest interval; shorter ones are raised to it.
constexpr unsigned kMinimumTimerInterval = 10;

/// Starts a timer of the calling thread that calls `procedure` every
/// `intervalMs` when the thread pumps; returns its identifier, never 0.
std::uintptr_t SetThreadTimer(unsigned intervalMs, TimerProcedure procedure);
/// Stops a timer from any thread; false when no such timer is running.
bool KillThreadTimer(std::uintptr_t id);
/// Waits until one of the calling thread's timers is due or `maxWaitMs` has
/// passed, then calls every due timer once; returns how many were called.
std::size_t PumpThreadTimers(unsigned long maxWaitMs);

// --- Address space and mapped files ------------------------------------------

/// The system's page size.
std::size_t PageSize();
/// Reserves `size` bytes of address space with no access; null on failure.
void* ReserveAddressSpace(std::size_t size);
/// Returns reserved or mapped address space.
void ReleaseAddressSpace(void* start, std::size_t size);
/// Maps `length` bytes of the file at `path` from `offset`, shared and
/// writable, exactly at `at` (which must lie in the caller's reservation).
bool MapFileRangeAt(void* at, std::string const& path, std::uint64_t offset, std::size_t length);
/// Makes sure that the disk holds `length` bytes for the file at `path` from
/// `offset` without changing its size; false when the disk cannot, or when
/// the file would pass the process's file-size limit.
bool ReserveFileSpace(std::string const& path, std::uint64_t offset, std::uint64_t length);
/// The most bytes a file of this process may hold (its file-size limit).
std::uint64_t FileSizeLimit();
/// Free bytes on the file system that holds `folder`; 0 when unknown.
std::uint64_t FreeDiskBytes(std::string const& folder);

// --- Crash reports ----------------------------------------------------------

/// Room for a crash report's path and its terminator.
constexpr std::size_t kCrashReportPathCapacity = 4096 + 8;

/// The crash report's path, beside the executable: the executable's path with
/// the extension of its file name replaced by ".dmp", or ".dmp" appended to a
/// name without one (never the executable itself). Written to `buffer` with a
/// terminator; returns its length, 0 when the executable's path cannot be
/// read or does not fit. Allocates nothing.
std::size_t CrashReportPath(char* buffer, std::size_t capacity);

/// Writes a crash report to `path`, replacing any file there: `report`, the
/// calling thread's stack trace with symbol names where available, and the
/// process's memory map. The parts that matter most are written without
/// allocating; source locations, which need the heap, come last. One report
/// is written at a time: a call while another thread writes one returns false
/// at once, as does a path that cannot be created.
bool WriteCrashReport(char const* path, std::string_view report);

} // namespace zrn::platform

#endif
