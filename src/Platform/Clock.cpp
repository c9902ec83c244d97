// The performance counter: nanoseconds on CLOCK_MONOTONIC's time line.
//
// A vDSO clock_gettime costs some 25 ns here, which dominates a profiled
// scope. Where the time-stamp counter is invariant and the kernel itself keeps
// time with it, the counter is read with rdtsc instead and scaled to
// nanoseconds by a multiply and shift, fitted to CLOCK_MONOTONIC between the
// first read and the first read at least kCalibrationNs later. Until then (and
// for good where the TSC cannot be trusted, or ZRN_PLAIN_CLOCK asks for it)
// reads go to clock_gettime, so no caller ever waits for the calibration.
#include "Platform/Platform.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <limits>
#include <string>

#if defined(__x86_64__)
#include <x86intrin.h>
#define ZRN_HAS_TSC 1
#endif

namespace zrn::platform {
namespace {

bool ReadMonotonic(std::int64_t& ns) {
  timespec now{};
  if (::clock_gettime(CLOCK_MONOTONIC, &now) != 0)
    return false;
  ns = static_cast<std::int64_t>(now.tv_sec) * kPerformanceFrequency + now.tv_nsec;
  return true;
}

#ifdef ZRN_HAS_TSC

// Shortest span the scale is fitted over: 20 ns of read jitter at each end
// gives under 10 ppm.
constexpr std::int64_t kCalibrationNs = 5'000'000;
// Nanoseconds = (ticks * multiplier) >> kScaleShift.
constexpr unsigned kScaleShift = 32;
// 128-bit products keep ticks times multiplier from overflowing.
__extension__ typedef __int128 Wide;
// Implied TSC frequencies outside this range mean a broken reading.
constexpr std::int64_t kMinTscHz = 1'000'000;
constexpr std::int64_t kMaxTscHz = 100'000'000'000;

// Undecided -> (Busy) -> Calibrating -> (Busy) -> Tsc, or -> Plain. Busy marks
// the one thread that moves the state on; everyone else reads the plain clock
// meanwhile.
enum class Source : int { Undecided, Busy, Calibrating, Tsc, Plain };

// A TSC reading and the CLOCK_MONOTONIC time at which it was taken.
struct Anchor {
  std::uint64_t tsc;
  std::int64_t ns;
};

std::atomic<Source> g_source{Source::Undecided};
// Written before g_source is released as Calibrating.
Anchor g_start{};
// Written before g_source is released as Tsc, read-only after.
Anchor g_base{};
std::uint64_t g_multiplier = 0;

// A TSC reading paired with clock_gettime: the tightest of a few brackets,
// taken at its start. The TSC-derived time thus runs a few nanoseconds ahead
// rather than behind, so a thread that read the plain clock just before the
// switch never sees the counter go back.
bool ReadAnchor(Anchor& anchor) {
  std::uint64_t bestSpan = std::numeric_limits<std::uint64_t>::max();
  for (int attempt = 0; attempt < 4; ++attempt) {
    std::int64_t ns = 0;
    const std::uint64_t before = __rdtsc();
    if (!ReadMonotonic(ns))
      return false;
    const std::uint64_t span = __rdtsc() - before;
    if (span < bestSpan) {
      bestSpan = span;
      anchor = {before, ns};
    }
  }
  return true;
}

// The first line of `path` that starts with `prefix`; empty when none.
std::string LineStartingWith(char const* path, char const* prefix) {
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);)
    if (line.rfind(prefix, 0) == 0)
      return line;
  return {};
}

bool HasFlag(std::string const& flags, char const* flag) {
  return (flags + ' ').find(std::string(" ") + flag + ' ') != std::string::npos;
}

bool PlainClockRequested() {
  char const* value = std::getenv("ZRN_PLAIN_CLOCK");
  return value && *value && std::strcmp(value, "0") != 0;
}

// The TSC ticks at one rate in every power state and on every core, and the
// kernel trusts it as its own clock source (it drops a TSC that fails its
// cross-core checks) or the platform vouches for it.
bool TscUsable() {
  if (PlainClockRequested())
    return false;
  const std::string flags = LineStartingWith("/proc/cpuinfo", "flags");
  if (!HasFlag(flags, "constant_tsc") || !HasFlag(flags, "nonstop_tsc"))
    return false;
  return HasFlag(flags, "tsc_reliable") ||
         LineStartingWith("/sys/devices/system/clocksource/clocksource0/current_clocksource",
                          "tsc") == "tsc";
}

std::int64_t FromTsc(std::uint64_t tsc) {
  const auto ticks = static_cast<std::int64_t>(tsc - g_base.tsc);
  const Wide scaled = static_cast<Wide>(ticks) * g_multiplier;
  return g_base.ns + static_cast<std::int64_t>(scaled >> kScaleShift);
}

// Fits the scale between g_start and a fresh anchor, which also becomes the
// base: the first TSC-derived value continues from the plain reads before it.
Source Calibrate(Anchor const& end) {
  const auto ticks = static_cast<std::int64_t>(end.tsc - g_start.tsc);
  const std::int64_t ns = end.ns - g_start.ns;
  if (ticks <= 0 || ns <= 0)
    return Source::Plain;
  const auto hz = static_cast<Wide>(ticks) * kPerformanceFrequency / ns;
  if (hz < kMinTscHz || hz > kMaxTscHz)
    return Source::Plain;
  g_multiplier = static_cast<std::uint64_t>((static_cast<Wide>(ns) << kScaleShift) / ticks);
  g_base = end;
  return Source::Tsc;
}

// Every read before the TSC takes over: decides, calibrates, or reads the
// plain clock while another thread does either. Kept out of line so that the
// TSC path saves no registers.
__attribute__((noinline, cold)) bool ReadBeforeTsc(std::int64_t& counter) {
  Source state = g_source.load(std::memory_order_acquire);
  if (state == Source::Undecided && g_source.compare_exchange_strong(state, Source::Busy)) {
    const bool usable = TscUsable() && ReadAnchor(g_start);
    g_source.store(usable ? Source::Calibrating : Source::Plain, std::memory_order_release);
    counter = g_start.ns;
    return usable || ReadMonotonic(counter);
  }
  if (!ReadMonotonic(counter))
    return false;
  if (state != Source::Calibrating || counter - g_start.ns < kCalibrationNs ||
      !g_source.compare_exchange_strong(state, Source::Busy, std::memory_order_acquire))
    return true;
  Anchor end{};
  const Source next = ReadAnchor(end) ? Calibrate(end) : Source::Plain;
  g_source.store(next, std::memory_order_release);
  if (next == Source::Tsc)
    counter = end.ns;
  return true;
}

#endif // ZRN_HAS_TSC

} // namespace

bool ReadPerformanceCounter(std::int64_t& counter) {
#ifdef ZRN_HAS_TSC
  if (g_source.load(std::memory_order_acquire) == Source::Tsc) [[likely]] {
    counter = FromTsc(__rdtsc());
    return true;
  }
  return ReadBeforeTsc(counter);
#else
  return ReadMonotonic(counter);
#endif
}

bool ReadPerformanceFrequency(std::int64_t& frequency) {
  frequency = kPerformanceFrequency;
  return true;
}

} // namespace zrn::platform
