#include <zq/values/Hash.h>

#include <cstdint>

namespace zq {
namespace Hash {

unsigned int hash(const unsigned char* data, std::size_t size) {
  std::uint32_t h = 0;
  for (std::size_t i = 0; i < size; ++i) {
    const std::uint32_t t = (h << 4) + data[i];
    h = ((t >> 23) & 0x1E0u) ^ (t & 0xFFFFFFFu);  // fold the top four bits into bits 5..8
  }
  return h;
}

}  // namespace Hash
}  // namespace zq
