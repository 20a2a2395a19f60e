#include <zq/platform/FileReplace.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zq {
namespace platform {

namespace {

bool writeAll(int fd, const void* data, std::size_t size) {
  const char* p = static_cast<const char*>(data);
  while (size != 0) {
    const ssize_t n = ::write(fd, p, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

// The folder a name lives in, for a temporary file beside it.
std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Makes a rename in `folder` survive a crash; a folder that can't be synced still holds it.
void syncFolder(const std::string& folder) {
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

bool syncPath(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool synced = ::fsync(fd) == 0;
  ::close(fd);
  return synced;
}

// Copies `in` into `out` to its end. The buffer is wiped: the content may be plain text.
bool copyAll(int in, int out) {
  std::vector<char> buffer(std::size_t{64} * 1024);
  bool ok = true;
  for (;;) {
    const ssize_t n = ::read(in, buffer.data(), buffer.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      ok = n == 0;
      break;
    }
    if (!writeAll(out, buffer.data(), static_cast<std::size_t>(n))) {
      ok = false;
      break;
    }
  }
  ::explicit_bzero(buffer.data(), buffer.size());
  return ok;
}

// Across file systems: a copy beside the target, forced to the device, renamed over it.
bool replaceAcross(const std::string& target, const std::string& replacement, mode_t mode) {
  const int in = ::open(replacement.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) return false;
  const std::string folder = folderOf(target);
  std::string temporary = folder + "/.zq-replace-XXXXXX";
  const int out = ::mkostemp(&temporary[0], O_CLOEXEC);
  if (out < 0) {
    ::close(in);
    return false;
  }
  ::fchmod(out, mode);  // best effort: mkostemp's 0600 is the safe side
  bool ok = copyAll(in, out) && ::fsync(out) == 0;
  ::close(in);
  ok = ::close(out) == 0 && ok;
  ok = ok && ::rename(temporary.c_str(), target.c_str()) == 0;
  if (!ok) {
    ::unlink(temporary.c_str());
    return false;
  }
  syncFolder(folder);
  ::unlink(replacement.c_str());
  return true;
}

}  // namespace

OverwriteFile::OverwriteFile(const std::string& path) : m_fd(::open(path.c_str(), O_WRONLY | O_CLOEXEC)) {}

OverwriteFile::~OverwriteFile() {
  if (m_fd >= 0) ::close(m_fd);
}

bool OverwriteFile::write(const void* data, std::size_t size) { return m_fd >= 0 && writeAll(m_fd, data, size); }

bool OverwriteFile::sync() { return m_fd >= 0 && ::fsync(m_fd) == 0; }

bool replaceFile(const std::string& target, const std::string& replacement) {
  struct stat t, r;
  if (::stat(target.c_str(), &t) != 0 || !S_ISREG(t.st_mode)) return false;
  if (::stat(replacement.c_str(), &r) != 0 || !S_ISREG(r.st_mode)) return false;
  if (t.st_dev == r.st_dev && t.st_ino == r.st_ino) return false;  // one file: nothing to put in place
  const mode_t mode = t.st_mode & 07777;
  if (t.st_dev != r.st_dev) return replaceAcross(target, replacement, mode);
  // The data first, so that a crash after the rename can't leave the target empty.
  if (!syncPath(replacement)) return false;
  ::chmod(replacement.c_str(), mode);  // best effort: a file of another owner keeps its bits
  if (::rename(replacement.c_str(), target.c_str()) != 0)
    return errno == EXDEV && replaceAcross(target, replacement, mode);
  syncFolder(folderOf(target));
  return true;
}

}  // namespace platform
}  // namespace zq
