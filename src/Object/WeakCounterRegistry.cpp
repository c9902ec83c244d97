#include "Object/WeakCounterRegistry.h"

#include <zrn/Object/WeakPtr.h>

#include "System/AnnotatedMutex.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <unordered_map>

namespace zrn {
namespace {

// Observed objects spread over independently locked shards so that threads
// creating and destroying unrelated objects rarely meet on one lock.
constexpr std::size_t kShardCount = 64;

struct Shard {
  detail::CAnnotatedMutex<std::mutex> mutex;
  // Each entry holds one reference on its counter.
  std::unordered_map<CReferenced const*, CWeakPtrCounter*> counters ZRN_GUARDED_BY(mutex);
};

class Registry {
public:
  Shard& ShardOf(CReferenced const* object) {
    const auto bits = reinterpret_cast<std::uintptr_t>(object);
    // Objects are at least 16-byte aligned; mix the higher bits in.
    return m_shards[((bits >> 4) ^ (bits >> 12)) % kShardCount];
  }

  std::atomic<std::size_t>& Entries() { return m_nEntries; }

private:
  std::array<Shard, kShardCount> m_shards;
  std::atomic<std::size_t> m_nEntries{0};
};

// Deliberately never destroyed: counted objects with static storage may die
// after every other static of the library.
Registry& TheRegistry() {
  static Registry* const registry = new Registry;
  return *registry;
}

} // namespace

CRefPtr<CWeakPtrCounter> GetWeakPtrCounter(CReferenced const* object) {
  if (!object)
    return nullptr;
  Registry& registry = TheRegistry();
  Shard& shard = registry.ShardOf(object);
  detail::CScopedLock lock(shard.mutex);
  CWeakPtrCounter*& slot = shard.counters[object];
  if (!slot) {
    slot = new CWeakPtrCounter(object);
    slot->Ref();
    registry.Entries().fetch_add(1, std::memory_order_release);
  }
  return CRefPtr<CWeakPtrCounter>(slot);
}

namespace detail {

void ForgetWeakCounter(CReferenced const* object) {
  Registry& registry = TheRegistry();
  if (registry.Entries().load(std::memory_order_acquire) == 0)
    return;
  CWeakPtrCounter* counter = nullptr;
  {
    Shard& shard = registry.ShardOf(object);
    detail::CScopedLock lock(shard.mutex);
    auto found = shard.counters.find(object);
    if (found == shard.counters.end())
      return;
    counter = found->second;
    shard.counters.erase(found);
  }
  registry.Entries().fetch_sub(1, std::memory_order_relaxed);
  // Outside the shard lock: dropping the counter destroys a CReferenced,
  // which comes back here.
  counter->Invalidate();
  counter->Unref();
}

} // namespace detail
} // namespace zrn
