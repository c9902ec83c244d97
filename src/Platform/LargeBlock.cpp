#include "Platform/Platform.h"

#include <cstdint>
#include <mutex>
#include <vector>

#include <sys/mman.h>

namespace zrn::platform {

namespace {

constexpr std::size_t kCachedBlocks = kLargeBlockCacheBytes / kLargeBlockSize;

// Released blocks, most recent last (the likeliest to be in memory still).
struct BlockCache {
  std::mutex lock;
  std::vector<void*> blocks;
};

BlockCache& Cache() {
  // Never destroyed: devices may release blocks during static destruction.
  static BlockCache* const cache = [] {
    auto* created = new BlockCache;
    created->blocks.reserve(kCachedBlocks);
    return created;
  }();
  return *cache;
}

void* MapBlock() {
  // Map one block more than needed, then trim to an aligned block.
  const std::size_t mapped = 2 * kLargeBlockSize;
  void* const raw =
      ::mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED)
    return nullptr;
  const auto start = reinterpret_cast<std::uintptr_t>(raw);
  const std::uintptr_t aligned =
      (start + kLargeBlockSize - 1) & ~(std::uintptr_t{kLargeBlockSize} - 1);
  if (aligned > start)
    ::munmap(raw, aligned - start);
  const std::uintptr_t end = start + mapped;
  if (end > aligned + kLargeBlockSize)
    ::munmap(reinterpret_cast<void*>(aligned + kLargeBlockSize), end - (aligned + kLargeBlockSize));
  // Huge pages: one fault per 2 MiB instead of one per 4 KiB.
  ::madvise(reinterpret_cast<void*>(aligned), kLargeBlockSize, MADV_HUGEPAGE);
  return reinterpret_cast<void*>(aligned);
}

} // namespace

void* AcquireLargeBlock() {
  BlockCache& cache = Cache();
  {
    std::lock_guard<std::mutex> guard(cache.lock);
    if (!cache.blocks.empty()) {
      void* const block = cache.blocks.back();
      cache.blocks.pop_back();
      return block;
    }
  }
  return MapBlock();
}

void ReleaseLargeBlock(void* block) {
  if (!block)
    return;
  BlockCache& cache = Cache();
  {
    std::lock_guard<std::mutex> guard(cache.lock);
    if (cache.blocks.size() < kCachedBlocks) {
      // Kept mapped and in memory, but the kernel may take the pages back
      // under pressure instead of swapping them: a write before that keeps
      // them, without a fault.
      ::madvise(block, kLargeBlockSize, MADV_FREE);
      cache.blocks.push_back(block);
      return;
    }
  }
  ::munmap(block, kLargeBlockSize);
}

} // namespace zrn::platform
