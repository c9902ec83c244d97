// Address-space reservations and file ranges mapped into them.
#include "Platform/Platform.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace zrn::platform {

std::size_t PageSize() { return static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)); }

void* ReserveAddressSpace(std::size_t size) {
  void* start =
      ::mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return start == MAP_FAILED ? nullptr : start;
}

void ReleaseAddressSpace(void* start, std::size_t size) {
  if (start && size)
    ::munmap(start, size);
}

bool MapFileRangeAt(void* at, std::string const& path, std::uint64_t offset, std::size_t length) {
  const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0)
    return false;
  void* mapped = ::mmap(at, length, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, fd,
                        static_cast<off_t>(offset));
  ::close(fd);
  return mapped == at;
}

bool ReserveFileSpace(std::string const& path, std::uint64_t offset, std::uint64_t length) {
  // Growing past the limit would raise SIGXFSZ, which ends the process unless
  // the host handles it; and a reservation that keeps the size ignores it.
  if (length > FileSizeLimit() || offset > FileSizeLimit() - length)
    return false;
  const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0)
    return false;
  int result =
      ::fallocate(fd, FALLOC_FL_KEEP_SIZE, static_cast<off_t>(offset), static_cast<off_t>(length));
  const int error = result == 0 ? 0 : errno;
  ::close(fd);
  if (error == EOPNOTSUPP || error == ENOSYS) {
    // The file system cannot reserve; judge by its free space instead.
    std::size_t slash = path.rfind('/');
    return FreeDiskBytes(slash == std::string::npos ? "." : path.substr(0, slash + 1)) >= length;
  }
  return result == 0;
}

std::uint64_t FileSizeLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
    return UINT64_MAX;
  return limit.rlim_cur;
}

std::uint64_t FreeDiskBytes(std::string const& folder) {
  struct statvfs info {};
  if (::statvfs(folder.c_str(), &info) != 0)
    return 0;
  return static_cast<std::uint64_t>(info.f_bavail) * info.f_frsize;
}

} // namespace zrn::platform
