// A heap inside a memory-mapped file.
//
// The heap lives in the file "zrn_mapped_file" of the current folder at the
// time of the first allocation (an older file of that name is replaced). It
// grows as needed, up to a fixed reservation of address space, and every
// block stays where it was handed out.
#ifndef ZRN_SYSTEM_MAPPEDMALLOC_H
#define ZRN_SYSTEM_MAPPEDMALLOC_H

#include <zrn/Export.h>

#include <cstdint>

namespace zrn {

/// Unsigned 64-bit size.
using uint64 = unsigned long long;

/// The most bytes the mapped heap's file may reach (64 GiB, less when the
/// process cannot reserve that much address space).
constexpr uint64 kMappedHeapLimit = uint64{64} << 30;

/// A block of at least `size` bytes in the mapped heap. Throws
/// boost::interprocess::bad_alloc when no block can be had even after growing
/// (beyond the limit, or when the disk cannot hold the larger file), and
/// Boost.Interprocess exceptions when the file cannot be created or mapped.
/// Thread-safe; the first call creates the heap.
ZRN_API void* mapped_malloc(uint64 size);

/// Returns a block from mapped_malloc; nothing for null or before the heap
/// exists. Thread-safe.
ZRN_API void mapped_free(void* p);

} // namespace zrn

#endif // ZRN_SYSTEM_MAPPEDMALLOC_H
