#include <zq/platform/LockedPages.h>

#include <cerrno>

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zq {
namespace platform {

namespace {

// The length the kernel counts against the limit: whole pages.
std::size_t wholePages(std::size_t size) {
  const std::size_t page = pageSize();
  return (size + page - 1) / page * page;
}

// Raises the soft limit of locked memory by `size`, up to the hard limit. False when it is
// already there (or unlimited, when the limit was not the cause).
bool raiseLockLimit(std::size_t size) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_MEMLOCK, &limit) != 0) return false;
  if (limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur >= limit.rlim_max) return false;
  const rlim_t room = limit.rlim_max - limit.rlim_cur;
  limit.rlim_cur = room > size ? limit.rlim_cur + size : limit.rlim_max;
  return ::setrlimit(RLIMIT_MEMLOCK, &limit) == 0;
}

}  // namespace

std::size_t pageSize() {
  static const std::size_t size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  return size;
}

void* mapPages(std::size_t size) {
  void* region = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (region == MAP_FAILED) return nullptr;
  // A core dump must not carry secrets; a kernel without the advice dumps as before.
  ::madvise(region, size, MADV_DONTDUMP);
  return region;
}

int lockPages(void* region, std::size_t size) {
  // The system call itself: the sanitizers' runtimes replace the mlock function by one that
  // locks nothing and says it did.
  const auto lock = [region, size] { return ::syscall(SYS_mlock, region, size) == 0 ? 0 : errno; };
  int error = lock();
  // ENOMEM: over RLIMIT_MEMLOCK. EPERM: the limit is 0 and the process has no privilege.
  if ((error == ENOMEM || error == EPERM) && raiseLockLimit(wholePages(size))) error = lock();
  return error;
}

void unmapPages(void* region, std::size_t size) {
  // Unmapping drops the lock with the pages; a munlock first would only split and merge the
  // mapping once more.
  ::munmap(region, size);
}

}  // namespace platform
}  // namespace zq
