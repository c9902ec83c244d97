#include "Platform/Platform.h"

#include <pthread.h>

namespace zrn::platform {

unsigned AllocThreadSlot() {
  pthread_key_t key;
  if (pthread_key_create(&key, nullptr) != 0)
    return kNoThreadSlot;
  static_assert(sizeof(key) <= sizeof(unsigned));
  return static_cast<unsigned>(key);
}

void* GetThreadSlot(unsigned slot) {
  if (slot == kNoThreadSlot)
    return nullptr;
  return pthread_getspecific(static_cast<pthread_key_t>(slot));
}

bool SetThreadSlot(unsigned slot, void* value) {
  if (slot == kNoThreadSlot)
    return false;
  return pthread_setspecific(static_cast<pthread_key_t>(slot), value) == 0;
}

} // namespace zrn::platform
