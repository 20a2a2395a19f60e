// Bytes as lower-case hex, for comparing binary results with published vectors and tools.
#pragma once

#include <cstdio>
#include <string>

namespace zq {
namespace test {

template <class Bytes>
std::string hexOf(const Bytes& bytes) {
  std::string out;
  char two[3];
  for (unsigned char c : bytes) {
    std::snprintf(two, sizeof two, "%02x", c);
    out += two;
  }
  return out;
}

}  // namespace test
}  // namespace zq
