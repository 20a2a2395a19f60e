#include <zq/platform/Files.h>

#include <zq/platform/Utf8.h>

#include <fcntl.h>
#include <unistd.h>

namespace zq {
namespace platform {

std::string nativePath(const std::wstring& path) { return toUtf8(path); }

bool reopenStdStream(std::FILE* stream, const std::wstring& path, bool append, bool buffered) {
  // Open first and swap descriptors after: freopen closes the stream for good when the new
  // file can't be opened, and a program should not lose its output to a bad path.
  const int flags = O_RDWR | O_CREAT | O_CLOEXEC | (append ? O_APPEND : O_TRUNC);
  const int fd = ::open(nativePath(path).c_str(), flags, 0666);
  if (fd < 0) return false;
  std::fflush(stream);
  const int target = fileno(stream);
  const bool moved = ::dup2(fd, target) == target;
  ::close(fd);
  if (!moved) return false;
  std::clearerr(stream);
  if (!buffered) std::setvbuf(stream, nullptr, _IONBF, 0);
  return true;
}

}  // namespace platform
}  // namespace zq
