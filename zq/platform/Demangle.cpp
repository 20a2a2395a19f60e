#include <zq/platform/Demangle.h>

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace zq {
namespace platform {

bool demangle(const char* name, std::string& o_text) {
  if (name == nullptr || *name == '\0') return false;
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> readable(abi::__cxa_demangle(name, nullptr, nullptr, &status), std::free);
  if (status != 0 || !readable) return false;
  o_text = readable.get();
  return true;
}

}  // namespace platform
}  // namespace zq
