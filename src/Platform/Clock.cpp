#include "Platform/Platform.h"

#include <ctime>

namespace zrn::platform {

bool ReadPerformanceCounter(std::int64_t& counter) {
  timespec now{};
  if (::clock_gettime(CLOCK_MONOTONIC, &now) != 0)
    return false;
  counter = static_cast<std::int64_t>(now.tv_sec) * kPerformanceFrequency + now.tv_nsec;
  return true;
}

bool ReadPerformanceFrequency(std::int64_t& frequency) {
  frequency = kPerformanceFrequency;
  return true;
}

} // namespace zrn::platform
