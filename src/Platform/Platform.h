// The library's platform layer: the only place that talks to Linux directly.
// Everything else reaches the operating system through these functions or the
// public System/Debugger.h and System/MessageBox.h.
#ifndef ZRN_SRC_PLATFORM_PLATFORM_H
#define ZRN_SRC_PLATFORM_PLATFORM_H

#include <cstddef>
#include <cstdint>
#include <string_view>

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

} // namespace zrn::platform

#endif
