// Crash reports: a text file in place of a process image. The writer avoids
// the heap until the essential parts are on disk, since it may run when the
// heap is no longer sound.
#define BOOST_STACKTRACE_LINK // the shared Boost.Stacktrace (libbacktrace flavour)

#include "Platform/Platform.h"

#include <boost/stacktrace.hpp>

#include <atomic>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zrn::platform {
namespace {

constexpr std::size_t kMaxFrames = 128;

std::atomic_flag g_writingReport = ATOMIC_FLAG_INIT;

class ReportFile {
public:
  explicit ReportFile(char const* path)
      : m_fd(::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)) {}
  ~ReportFile() {
    if (m_fd >= 0)
      ::close(m_fd);
  }
  ReportFile(ReportFile const&) = delete;
  ReportFile& operator=(ReportFile const&) = delete;

  bool IsOpen() const { return m_fd >= 0; }
  int Descriptor() const { return m_fd; }

  ReportFile& operator<<(std::string_view text) {
    while (!text.empty()) {
      const ssize_t n = ::write(m_fd, text.data(), text.size());
      if (n <= 0)
        return *this;
      text.remove_prefix(static_cast<std::size_t>(n));
    }
    return *this;
  }

  // A number in the given base, formatted on the stack.
  ReportFile& Number(unsigned long long value, unsigned base) {
    char digits[32];
    std::size_t at = sizeof(digits);
    do {
      digits[--at] = "0123456789abcdef"[value % base];
      value /= base;
    } while (value != 0);
    return *this << std::string_view(digits + at, sizeof(digits) - at);
  }

private:
  int m_fd;
};

void WriteFrame(ReportFile& file, std::size_t index, void const* address) {
  file.Number(index, 10) << "# 0x";
  file.Number(reinterpret_cast<std::uintptr_t>(address), 16);
  Dl_info info{};
  if (::dladdr(address, &info) != 0) {
    if (info.dli_sname) {
      file << " " << info.dli_sname << "+0x";
      file.Number(reinterpret_cast<std::uintptr_t>(address) -
                      reinterpret_cast<std::uintptr_t>(info.dli_saddr),
                  16);
    }
    if (info.dli_fname)
      file << " in " << info.dli_fname;
  }
  file << "\n";
}

void CopyMemoryMap(ReportFile& file) {
  const int maps = ::open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  if (maps < 0)
    return;
  char chunk[4096];
  for (ssize_t n; (n = ::read(maps, chunk, sizeof(chunk))) > 0;)
    file << std::string_view(chunk, static_cast<std::size_t>(n));
  ::close(maps);
}

// Demangled names and source lines; these need the heap, so they come last.
void WriteSourceLocations(ReportFile& file, void* const* frames, std::size_t count) {
  try {
    for (std::size_t i = 0; i < count; ++i) {
      const boost::stacktrace::frame frame(frames[i]);
      file.Number(i, 10) << "# " << frame.name();
      const std::string source = frame.source_file();
      if (!source.empty()) {
        file << " at " << source << ":";
        file.Number(frame.source_line(), 10);
      }
      file << "\n";
    }
  } catch (...) {
    file << "(source locations unavailable)\n";
  }
}

} // namespace

std::size_t CrashReportPath(char* buffer, std::size_t capacity) {
  constexpr char kExtension[] = ".dmp";
  constexpr std::size_t kRoom = sizeof(kExtension); // with the terminator
  if (capacity <= kRoom)
    return 0;
  const ssize_t n = ::readlink("/proc/self/exe", buffer, capacity - kRoom);
  if (n <= 0 || static_cast<std::size_t>(n) >= capacity - kRoom)
    return 0;
  std::size_t length = static_cast<std::size_t>(n);
  buffer[length] = '\0';
  char const* slash = std::strrchr(buffer, '/');
  char const* nameStart = slash ? slash + 1 : buffer;
  char* dot = std::strrchr(buffer, '.');
  // A dot that starts the name (a hidden file) is not an extension.
  if (dot && dot > nameStart)
    length = static_cast<std::size_t>(dot - buffer);
  std::memcpy(buffer + length, kExtension, sizeof(kExtension));
  return length + sizeof(kExtension) - 1;
}

bool WriteCrashReport(char const* path, std::string_view report) {
  if (g_writingReport.test_and_set(std::memory_order_acquire))
    return false;
  bool written = false;
  {
    ReportFile file(path);
    if (file.IsOpen()) {
      file << "Crash report of process ";
      file.Number(static_cast<unsigned long long>(::getpid()), 10) << ", thread ";
      file.Number(static_cast<unsigned long long>(::syscall(SYS_gettid)), 10) << "\n\n";
      file << report << "\n\nStack trace:\n";
      void* frames[kMaxFrames];
      std::size_t count = boost::stacktrace::safe_dump_to(0, frames, sizeof(frames));
      while (count > 0 && frames[count - 1] == nullptr)
        --count; // the terminating zero frame
      for (std::size_t i = 0; i < count; ++i)
        WriteFrame(file, i, frames[i]);
      file << "\nMemory map:\n";
      CopyMemoryMap(file);
      file << "\nStack trace with source locations:\n";
      WriteSourceLocations(file, frames, count);
      written = true;
    }
  }
  g_writingReport.clear(std::memory_order_release);
  return written;
}

} // namespace zrn::platform
