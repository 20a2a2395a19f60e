#include <zq/platform/SafeFiles.h>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace zq {
namespace platform {

int createNewFile(const std::string& path) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return errno;
  return ::close(fd) == 0 ? 0 : errno;
}

HeldFile::~HeldFile() {
  if (m_fd >= 0) ::close(m_fd);
}

int HeldFile::open(const std::string& path) {
  if (m_fd >= 0) ::close(m_fd);
  m_fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  return m_fd >= 0 ? 0 : errno;
}

std::string HeldFile::path() const { return "/proc/self/fd/" + std::to_string(m_fd); }

}  // namespace platform
}  // namespace zq
