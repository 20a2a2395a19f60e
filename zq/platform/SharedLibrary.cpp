#include <zq/platform/SharedLibrary.h>

#include <zq/platform/Files.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zq {
namespace platform {

namespace {

std::string lastLoaderError() {
  const char* text = ::dlerror();
  return text ? std::string(text) : std::string();
}

bool endsWith(const std::wstring& text, const std::wstring& suffix) {
  return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// Length of the UTF-8 sequence that `lead` starts, 0 for a byte that can't start one.
std::size_t sequenceLength(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) return 3;
  if (lead >= 0xF0 && lead <= 0xF4) return 4;
  return 0;
}

// Whether every loadable segment of an ELF file lies within the file. The system's loader maps
// segments by their headers without comparing them with the file's size, and touching a page
// past the end of a cut-off file (a copy broken off, a disk that filled) raises SIGBUS in the
// whole process. Anything but a native 64-bit ELF file, or one that can't be read, passes here:
// the loader's own checks and messages take it from there.
bool segmentsWithinFile(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return true;
  struct stat info {};
  Elf64_Ehdr header{};
  bool whole = true;
  if (::fstat(fd, &info) == 0 && ::pread(fd, &header, sizeof header, 0) == static_cast<ssize_t>(sizeof header) &&
      std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && header.e_ident[EI_CLASS] == ELFCLASS64 &&
      header.e_phentsize == sizeof(Elf64_Phdr)) {
    const auto size = static_cast<std::uint64_t>(info.st_size);
    const std::uint64_t tableEnd = header.e_phoff + std::uint64_t{header.e_phnum} * sizeof(Elf64_Phdr);
    whole = header.e_phoff <= size && tableEnd <= size;
    for (std::uint16_t i = 0; whole && i < header.e_phnum; ++i) {
      Elf64_Phdr segment{};
      whole = ::pread(fd, &segment, sizeof segment, static_cast<off_t>(header.e_phoff + i * sizeof segment)) ==
              static_cast<ssize_t>(sizeof segment);
      if (whole && segment.p_type == PT_LOAD)
        whole = segment.p_offset <= size && segment.p_filesz <= size - segment.p_offset;
    }
  }
  ::close(fd);
  return whole;
}

}  // namespace

void* openLibrary(const std::wstring& path, std::string& o_error) {
  if (path.empty()) {
    // dlopen("") would hand back the program itself.
    o_error = "empty path";
    return nullptr;
  }
  const std::string native = nativePath(path);
  if (!segmentsWithinFile(native)) {
    o_error = native + ": file too short";
    return nullptr;
  }
  void* library = ::dlopen(native.c_str(), RTLD_NOW);
  if (!library) o_error = lastLoaderError();
  return library;
}

void closeLibrary(void* library) {
  if (library) ::dlclose(library);
}

void* findSymbol(void* library, const std::string& name, std::string& o_error) {
  if (!library) {
    // dlsym would take null for "every library loaded" and find the program's own symbols.
    o_error = "no shared library is open";
    return nullptr;
  }
  ::dlerror();  // a stale error would be taken for this lookup's
  void* address = ::dlsym(library, name.c_str());
  if (!address) {
    o_error = lastLoaderError();
    if (o_error.empty()) o_error = "symbol has a null address";
  }
  return address;
}

std::string errorText(int code) {
  char buffer[256];
  // The GNU strerror_r, which may return a static text instead of filling the buffer.
  return std::string(::strerror_r(code, buffer, sizeof buffer));
}

bool executablePath(std::wstring& o_path, int& o_error) {
  std::string buffer(4096, '\0');
  for (;;) {
    const ssize_t length = ::readlink("/proc/self/exe", &buffer[0], buffer.size());
    if (length < 0) {
      o_error = errno;
      return false;
    }
    if (static_cast<std::size_t>(length) < buffer.size()) {
      buffer.resize(static_cast<std::size_t>(length));
      break;
    }
    buffer.resize(buffer.size() * 2);  // possibly cut short: try again with more room
  }
  o_path = widePath(buffer);
  return true;
}

bool listFolder(const std::wstring& directory, const std::wstring& suffix, std::vector<std::wstring>& o_paths,
                int& o_error) {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(nativePath(directory).c_str()), &::closedir);
  if (!folder) {
    o_error = errno;
    return false;
  }
  std::vector<std::wstring> names;
  for (;;) {
    errno = 0;
    const dirent* entry = ::readdir(folder.get());
    if (!entry) {
      if (errno != 0) {
        o_error = errno;
        return false;
      }
      break;
    }
    std::wstring name = widePath(entry->d_name);
    if (endsWith(name, suffix)) names.push_back(std::move(name));
  }
  // The system hands entries out in no particular order; plug-ins bind in name order.
  std::sort(names.begin(), names.end());
  o_paths.clear();
  o_paths.reserve(names.size());
  for (const std::wstring& name : names) o_paths.emplace_back(directory).append(L"/").append(name);
  return true;
}

std::wstring widePath(const std::string& name) {
  std::wstring result;
  result.reserve(name.size());
  for (std::size_t i = 0; i < name.size();) {
    const auto lead = static_cast<unsigned char>(name[i]);
    const std::size_t length = sequenceLength(lead);
    bool valid = length != 0 && i + length <= name.size();
    char32_t codePoint = length == 1 ? lead : length == 2 ? (lead & 0x1F) : length == 3 ? (lead & 0x0F) : (lead & 0x07);
    for (std::size_t k = 1; valid && k < length; ++k) {
      const auto next = static_cast<unsigned char>(name[i + k]);
      valid = (next & 0xC0) == 0x80;
      codePoint = (codePoint << 6) | (next & 0x3F);
    }
    // Overlong forms, surrogates and values past U+10FFFF are not text.
    if (valid && ((length == 3 && (codePoint < 0x800 || (codePoint >= 0xD800 && codePoint <= 0xDFFF))) ||
                  (length == 4 && (codePoint < 0x10000 || codePoint > 0x10FFFF))))
      valid = false;
    if (valid) {
      result.push_back(static_cast<wchar_t>(codePoint));
      i += length;
    } else {
      result.push_back(L'\xFFFD');
      ++i;
    }
  }
  return result;
}

}  // namespace platform
}  // namespace zq
