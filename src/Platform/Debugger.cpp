#include "Platform/Platform.h"

#include <zrn/System/Debugger.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace zrn {
namespace {

// Reads the TracerPid field of /proc/self/status without allocating.
bool ReadTracerPid() {
  const int fd = ::open("/proc/self/status", O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return false;
  char buffer[4096];
  ssize_t total = 0;
  for (;;) {
    const ssize_t n = ::read(fd, buffer + total, sizeof(buffer) - 1 - total);
    if (n <= 0)
      break;
    total += n;
    if (total == static_cast<ssize_t>(sizeof(buffer) - 1))
      break;
  }
  ::close(fd);
  buffer[total] = '\0';
  const char* field = std::strstr(buffer, "TracerPid:");
  if (!field)
    return false;
  return std::strtol(field + std::strlen("TracerPid:"), nullptr, 10) != 0;
}

std::int64_t CoarseNowNs() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

constexpr std::int64_t kRecheckIntervalNs = 1000000000;

std::atomic<std::int64_t> g_nNextDebuggerCheckNs{0};
std::atomic<bool> g_bDebuggerSeen{false};

} // namespace

bool IsDebuggerAttached() { return ReadTracerPid(); }

void BreakIntoDebugger() { std::raise(SIGTRAP); }

namespace platform {

bool IsDebuggerAttachedRecently() {
  const std::int64_t now = CoarseNowNs();
  if (now >= g_nNextDebuggerCheckNs.load(std::memory_order_relaxed)) {
    g_nNextDebuggerCheckNs.store(now + kRecheckIntervalNs, std::memory_order_relaxed);
    g_bDebuggerSeen.store(ReadTracerPid(), std::memory_order_relaxed);
  }
  return g_bDebuggerSeen.load(std::memory_order_relaxed);
}

void WriteStandardError(std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = ::write(STDERR_FILENO, text.data(), text.size());
    if (n <= 0)
      return;
    text.remove_prefix(static_cast<std::size_t>(n));
  }
}

} // namespace platform
} // namespace zrn
