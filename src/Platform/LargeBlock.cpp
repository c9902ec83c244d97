#include "Platform/Platform.h"

#include <cstdint>
#include <sys/mman.h>

namespace zrn::platform {

void* AllocateLargeBlock(std::size_t size) {
  // Map one alignment unit more than needed, then trim to an aligned block.
  const std::size_t mapped = size + kLargeBlockAlignment;
  void* const raw =
      ::mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED)
    return nullptr;
  const auto start = reinterpret_cast<std::uintptr_t>(raw);
  const std::uintptr_t aligned =
      (start + kLargeBlockAlignment - 1) & ~(std::uintptr_t{kLargeBlockAlignment} - 1);
  if (aligned > start)
    ::munmap(raw, aligned - start);
  const std::uintptr_t end = start + mapped;
  if (end > aligned + size)
    ::munmap(reinterpret_cast<void*>(aligned + size), end - (aligned + size));
  // Huge pages: one fault per 2 MiB instead of one per 4 KiB.
  ::madvise(reinterpret_cast<void*>(aligned), size, MADV_HUGEPAGE);
  return reinterpret_cast<void*>(aligned);
}

void FreeLargeBlock(void* block, std::size_t size) {
  if (block)
    ::munmap(block, size);
}

} // namespace zrn::platform
