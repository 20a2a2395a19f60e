// File steps for replacing a file without ever losing its content: creating a file that did not
// exist, and keeping a file's content reachable after its name is gone.
#pragma once

#include <string>

namespace zq {
namespace platform {

// Creates `path` as a new, empty file readable and writable by its owner only; an existing file
// is never touched. 0, or the errno of the failure (EEXIST for a name that is taken).
int createNewFile(const std::string& path);

// A file held open for reading. Its content stays reachable through path() when its name is
// removed or replaced, until the object goes. Not copyable.
class HeldFile {
 public:
  HeldFile() = default;
  ~HeldFile();
  HeldFile(const HeldFile&) = delete;
  HeldFile& operator=(const HeldFile&) = delete;

  // 0, or the errno of the failure.
  int open(const std::string& path);
  // A name that reaches the held content ("/proc/self/fd/N").
  std::string path() const;

 private:
  int m_fd = -1;
};

}  // namespace platform
}  // namespace zq
