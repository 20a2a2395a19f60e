#include <zq/platform/SharedLibrary.h>

#include <zq/platform/Files.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <dlfcn.h>
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

}  // namespace

void* openLibrary(const std::wstring& path, std::string& o_error) {
  if (path.empty()) {
    // dlopen("") would hand back the program itself.
    o_error = "empty path";
    return nullptr;
  }
  void* library = ::dlopen(nativePath(path).c_str(), RTLD_NOW);
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
