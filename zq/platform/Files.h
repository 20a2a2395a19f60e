// File-system names and the process's standard streams.
#pragma once

#include <cstdio>
#include <string>

namespace zq {
namespace platform {

// A wide path as the file system's byte name (UTF-8).
std::string nativePath(const std::wstring& path);

// Points `stream` (stdout or stderr) and its descriptor at `path`, opened for reading and
// writing, appended to or emptied. Unbuffered unless `buffered`. If the file can't be opened
// the stream is left as it was, and false is returned.
bool reopenStdStream(std::FILE* stream, const std::wstring& path, bool append, bool buffered);

}  // namespace platform
}  // namespace zq
