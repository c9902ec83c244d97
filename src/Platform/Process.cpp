// Module paths, processes and memory figures from /proc, dladdr and glibc.
#include "Platform/Platform.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <limits>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zrn::platform {
namespace {

std::string ReadLink(char const* link, std::size_t capacity) {
  std::string target(capacity, '\0');
  const ssize_t n = ::readlink(link, target.data(), target.size());
  if (n <= 0)
    return {};
  target.resize(static_cast<std::size_t>(n));
  return target;
}

// The whole of a small /proc file; empty on failure.
std::string ReadSmallFile(char const* path) {
  std::ifstream in(path, std::ios::binary);
  if (!in)
    return {};
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// The number after "name:" in a /proc status-like text, scaled by its "kB"
// unit; false when the field is missing.
bool StatusField(std::string const& text, char const* name, std::uint64_t& value) {
  const std::string key = std::string("\n") + name + ":";
  const std::size_t at = ("\n" + text).find(key);
  if (at == std::string::npos)
    return false;
  const char* cursor = text.c_str() + at + key.size() - 1;
  char* end = nullptr;
  value = std::strtoull(cursor, &end, 10);
  if (end == cursor)
    return false;
  while (*end == ' ')
    ++end;
  if (std::strncmp(end, "kB", 2) == 0)
    value *= 1024;
  return true;
}

// The fields of /proc/self/stat after the command name, which may itself
// contain blanks and parentheses; field 3 (state) is index 0.
bool StatFields(std::string const& path, std::uint64_t (&out)[10]) {
  const std::string text = ReadSmallFile(path.c_str());
  const std::size_t close = text.rfind(')');
  if (close == std::string::npos)
    return false;
  const char* cursor = text.c_str() + close + 1;
  for (std::uint64_t& field : out) {
    while (*cursor == ' ')
      ++cursor;
    if (!*cursor)
      return false;
    char* end = nullptr;
    field = std::strtoull(cursor, &end, 10);
    cursor = end == cursor ? cursor + 1 : end; // the state is a letter
  }
  return true;
}

// The memory the process's cgroup (v2) may still use; max when unlimited or
// unknown.
std::uint64_t CgroupHeadroom() {
  constexpr std::uint64_t kUnlimited = std::numeric_limits<std::uint64_t>::max();
  const std::string self = ReadSmallFile("/proc/self/cgroup");
  if (self.rfind("0::", 0) != 0)
    return kUnlimited;
  std::string group = self.substr(3);
  group.erase(std::find(group.begin(), group.end(), '\n'), group.end());
  const std::string base = "/sys/fs/cgroup" + group;
  const std::string limit = ReadSmallFile((base + "/memory.max").c_str());
  const std::string used = ReadSmallFile((base + "/memory.current").c_str());
  if (limit.empty() || used.empty() || limit.rfind("max", 0) == 0)
    return kUnlimited;
  const std::uint64_t max = std::strtoull(limit.c_str(), nullptr, 10);
  const std::uint64_t current = std::strtoull(used.c_str(), nullptr, 10);
  return max > current ? max - current : 0;
}

} // namespace

std::string ExecutablePath() { return ReadLink("/proc/self/exe", 4096); }

std::string ModulePathOf(void const* address) {
  Dl_info info{};
  if (::dladdr(address, &info) == 0 || !info.dli_fname)
    return {};
  // A relative name is as the loader saw it; make it absolute.
  char resolved[4096];
  if (::realpath(info.dli_fname, resolved))
    return resolved;
  return info.dli_fname;
}

bool PathExists(std::string const& path) { return ::access(path.c_str(), F_OK) == 0; }

bool MakeOneDirectory(std::string const& path) { return ::mkdir(path.c_str(), 0777) == 0; }

int ParentProcessId() {
  std::uint64_t fields[10];
  if (!StatFields("/proc/self/stat", fields))
    return -1;
  return static_cast<int>(fields[1]);
}

std::string ProcessExecutablePath(int pid, std::size_t capacity) {
  if (pid <= 0 || capacity == 0)
    return {};
  const std::string link = "/proc/" + std::to_string(pid) + "/exe";
  std::string path = ReadLink(link.c_str(), 4096);
  if (path.size() > capacity - 1)
    path.resize(capacity - 1);
  return path;
}

std::uint64_t AvailableMemoryBytes() {
  const std::string info = ReadSmallFile("/proc/meminfo");
  std::uint64_t available = 0;
  std::uint64_t swap = 0;
  if (!StatusField(info, "MemAvailable", available))
    return 0;
  StatusField(info, "SwapFree", swap);
  return std::min(available + swap, CgroupHeadroom());
}

bool ReadProcessMemoryCounters(sProcessMemoryCounters& counters) {
  const std::string status = ReadSmallFile("/proc/self/status");
  std::uint64_t fields[10];
  sProcessMemoryCounters read;
  if (!StatusField(status, "VmRSS", read.WorkingSetSize) ||
      !StatusField(status, "VmHWM", read.PeakWorkingSetSize) ||
      !StatusField(status, "VmSize", read.PagefileUsage) ||
      !StatusField(status, "VmPeak", read.PeakPagefileUsage) ||
      !StatFields("/proc/self/stat", fields))
    return false;
  // Minor (field 10) and major (field 12) faults.
  read.PageFaultCount = static_cast<std::uint32_t>(fields[7] + fields[9]);
  counters = read;
  return true;
}

bool ReadHeapInUse(std::uint64_t& bytes) {
  const struct mallinfo2 info = ::mallinfo2();
  bytes = info.uordblks + info.hblkhd;
  return true;
}

} // namespace zrn::platform
