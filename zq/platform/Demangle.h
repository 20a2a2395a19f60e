// Readable names for run-time type names: the platform gives them mangled.
#pragma once

#include <string>

namespace zq {
namespace platform {

// Sets o_text to the readable form of the mangled `name` and returns true; returns false and
// leaves o_text alone when `name` is not a mangled name (a hand-written one, say).
bool demangle(const char* name, std::string& o_text);

}  // namespace platform
}  // namespace zq
