// The mapped heap. One address-space reservation holds the whole mapping:
// the managed file is mapped at its start, and every growth maps the file's
// new range right behind the old one, inside the reservation, before the
// allocator learns of the new space. Blocks therefore never move and are
// always addressable.
//
// Growth must not run while another thread allocates, so the segment's
// allocator lock is a Boost interprocess mutex that records where it lives;
// growth takes it. Growers are serialised by a lock of the library's own.
#include <zrn/System/MappedMalloc.h>

#include "Platform/Platform.h"
#include "System/AnnotatedMutex.h"

#include <boost/filesystem/operations.hpp>
#include <boost/interprocess/exceptions.hpp>
#include <boost/interprocess/file_mapping.hpp>
#include <boost/interprocess/indexes/iset_index.hpp>
#include <boost/interprocess/managed_mapped_file.hpp>
#include <boost/interprocess/mem_algo/rbtree_best_fit.hpp>
#include <boost/interprocess/sync/interprocess_mutex.hpp>
#include <boost/interprocess/sync/interprocess_recursive_mutex.hpp>

#include <atomic>
#include <mutex>

namespace zrn {
namespace {

namespace bip = boost::interprocess;

constexpr char const kFileName[] = "zrn_mapped_file";
constexpr uint64 kInitialExtra = 16777232; // 16 MiB + 16

// Set by the allocator lock's constructor, which runs when the segment is
// created in this process.
bip::interprocess_mutex* g_pSegmentLock = nullptr;

struct CSegmentLock : bip::interprocess_mutex {
  CSegmentLock() { g_pSegmentLock = this; }
};

struct sHeapMutexFamily {
  using mutex_type = CSegmentLock;
  using recursive_mutex_type = bip::interprocess_recursive_mutex;
};

using HeapFile =
    bip::basic_managed_mapped_file<char, bip::rbtree_best_fit<sHeapMutexFamily>, bip::iset_index>;
using SegmentManager = HeapFile::segment_manager;

struct MappedHeap {
  HeapFile file;
  std::string path; // absolute, so that growth finds it after a folder change
  char* base;
  std::size_t reserved; // bytes of address space from `base`
  std::size_t mapped;   // page-aligned bytes of the file mapped from `base`
};

std::atomic<SegmentManager*> g_pSegment{nullptr};
detail::CAnnotatedMutex<std::mutex> g_growLock;
MappedHeap* g_pHeap ZRN_GUARDED_BY(g_growLock) = nullptr; // never released: blocks live until exit

std::size_t PageAligned(uint64 bytes) {
  const std::size_t page = platform::PageSize();
  return static_cast<std::size_t>((bytes + page - 1) / page * page);
}

uint64 Rounded(uint64 size) { return (size + 1024) / 1024 * 1024; }

// Address space for the heap: the limit, or less if the process cannot have
// that much.
std::size_t Reserve(void*& base, uint64 atLeast) {
  for (uint64 size = kMappedHeapLimit; size >= atLeast && size >= (uint64{1} << 30); size /= 2)
    if ((base = platform::ReserveAddressSpace(static_cast<std::size_t>(size))))
      return static_cast<std::size_t>(size);
  base = nullptr;
  return 0;
}

void ThrowNoSpace() { throw bip::interprocess_exception(bip::error_info(bip::out_of_space_error)); }

// A current folder that is gone (removed after the process entered it) is a
// failure to create the file like any other.
std::string CurrentFolder() {
  boost::system::error_code error;
  boost::filesystem::path folder = boost::filesystem::current_path(error);
  if (error)
    throw bip::interprocess_exception(bip::error_info(error.value()));
  return folder.string();
}

// Creates the file and maps it at the start of a fresh reservation. The file
// must go into a hole of the reservation: another thread's mapping could
// take that hole first, so a few attempts are made.
MappedHeap* CreateHeap(uint64 r) {
  const uint64 size = r + kInitialExtra;
  const std::string folder = CurrentFolder();
  const std::string path = folder + "/" + kFileName;
  bip::file_mapping::remove(path.c_str());
  // A sparse file on a full disk would fault when touched, and one past the
  // file-size limit would raise SIGXFSZ.
  if (size > platform::FileSizeLimit() || platform::FreeDiskBytes(folder) < size)
    ThrowNoSpace();
  for (int attempt = 0;; ++attempt) {
    void* base = nullptr;
    const std::size_t reserved = Reserve(base, size);
    if (!base || reserved < size)
      throw bip::bad_alloc();
    const std::size_t mapped = PageAligned(size);
    platform::ReleaseAddressSpace(base, mapped);
    try {
      auto* heap = new MappedHeap{
          HeapFile(bip::create_only, path.c_str(), static_cast<std::size_t>(size), base), path,
          static_cast<char*>(base), reserved, mapped};
      return heap;
    } catch (bip::interprocess_exception const& error) {
      platform::ReleaseAddressSpace(static_cast<char*>(base) + mapped, reserved - mapped);
      bip::file_mapping::remove(path.c_str());
      if (error.get_error_code() != bip::busy_error || attempt == 2)
        throw;
    }
  }
}

SegmentManager* Segment(uint64 r) {
  if (SegmentManager* segment = g_pSegment.load(std::memory_order_acquire))
    return segment;
  detail::CScopedLock lock(g_growLock);
  if (!g_pHeap)
    g_pHeap = CreateHeap(r);
  SegmentManager* segment = g_pHeap->file.get_segment_manager();
  g_pSegment.store(segment, std::memory_order_release);
  return segment;
}

// Enlarges the file by `extra` bytes: disk space first, then the mapping,
// then the allocator's view, so that the allocator never hands out space
// that is not mapped or not backed.
void Grow(MappedHeap& heap, SegmentManager& segment, uint64 extra) {
  const uint64 size = segment.get_size();
  const uint64 grown = size + extra;
  if (grown > heap.reserved || !platform::ReserveFileSpace(heap.path, size, extra))
    throw bip::bad_alloc();
  const std::size_t needed = PageAligned(grown);
  if (needed > heap.mapped) {
    if (!platform::MapFileRangeAt(heap.base + heap.mapped, heap.path, heap.mapped,
                                  needed - heap.mapped))
      throw bip::bad_alloc();
    heap.mapped = needed;
  }
  bip::scoped_lock<bip::interprocess_mutex> lock(*g_pSegmentLock);
  if (!HeapFile::grow(heap.path.c_str(), static_cast<std::size_t>(extra)))
    throw bip::bad_alloc();
}

} // namespace

void* mapped_malloc(uint64 size) {
  if (size > kMappedHeapLimit)
    throw bip::bad_alloc();
  const uint64 r = Rounded(size);
  SegmentManager* segment = Segment(r);
  if (void* block = segment->allocate(static_cast<std::size_t>(size), std::nothrow))
    return block;
  detail::CScopedLock lock(g_growLock);
  // Another thread may have grown the heap meanwhile.
  if (void* block = segment->allocate(static_cast<std::size_t>(size), std::nothrow))
    return block;
  Grow(*g_pHeap, *segment, (segment->get_size() + 8) / 2 + r + 16);
  return segment->allocate(static_cast<std::size_t>(size));
}

void mapped_free(void* p) {
  SegmentManager* segment = g_pSegment.load(std::memory_order_acquire);
  if (segment && p)
    segment->deallocate(p);
}

} // namespace zrn
