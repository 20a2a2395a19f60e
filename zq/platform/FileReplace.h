// Writing a file over in place, and putting one file in another's place, on Linux.
#pragma once

#include <cstddef>
#include <string>

namespace zq {
namespace platform {

// An existing file opened for writing from its first byte: never created, never truncated, so
// what is written lands on the file's own blocks. Not copyable; closes itself.
class OverwriteFile {
 public:
  explicit OverwriteFile(const std::string& path);
  ~OverwriteFile();
  OverwriteFile(const OverwriteFile&) = delete;
  OverwriteFile& operator=(const OverwriteFile&) = delete;

  bool isOpen() const { return m_fd >= 0; }
  // Writes all of `data` at the current position; false when the file is not open or a write
  // fails.
  bool write(const void* data, std::size_t size);
  // Forces what was written to the device.
  bool sync();

 private:
  int m_fd;
};

// Puts the content of `replacement` under the name `target` and removes the name
// `replacement`; `target` keeps its permission bits. Both must be existing regular files, and
// not the same file. On one file system this is one rename(2), after the replacement's data
// reached the device. Across file systems the content is copied into a temporary file in the
// target's folder, forced to the device and renamed over the target, and the replacement is
// removed after that. Either way the name `target` shows the old or the new content at every
// moment; on false the old one, with no temporary file left. True once the target holds the
// new content, even if the replacement's name could not be removed afterwards.
bool replaceFile(const std::string& target, const std::string& replacement);

}  // namespace platform
}  // namespace zq
