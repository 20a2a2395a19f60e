// Shared by the fuzz targets: a check that stops the run with a readable reason, and the split
// of one input into the several texts a call takes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace zq {
namespace fuzz {

// An invariant that does not hold is a finding: abort, so libFuzzer keeps the input.
#define ZQ_FUZZ_CHECK(condition)                                                             \
  do {                                                                                       \
    if (!(condition)) {                                                                      \
      std::fprintf(stderr, "%s:%d: invariant failed: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                          \
    }                                                                                        \
  } while (0)

// The input cut at its first `count - 1` zero bytes; the last field takes the rest (zero bytes
// included) and missing fields are empty. Seeds are easy to write this way: "given\0related".
inline std::vector<std::string> splitFields(const std::uint8_t* data, std::size_t size, std::size_t count) {
  std::vector<std::string> fields(count);
  std::size_t field = 0;
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == 0 && field + 1 < count) {
      ++field;
      continue;
    }
    fields[field].push_back(static_cast<char>(data[i]));
  }
  return fields;
}

// The first byte, when there is one, as a small selector; the rest as data.
inline unsigned char takeByte(const std::uint8_t*& data, std::size_t& size) {
  if (size == 0) return 0;
  --size;
  return *data++;
}

}  // namespace fuzz
}  // namespace zq
