#include <zq/crypto/SecureFile.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <openssl/rand.h>

#include <cstdint>
#include <cstring>

namespace zq {
namespace crypto {

void randomize() {
  if (RAND_status() != 0) return;
  // 16 bytes: the time's own 8, then the address of this seed on the stack.
  unsigned char seed[16];
  const boost::posix_time::ptime now = boost::posix_time::microsec_clock::universal_time();
  static_assert(sizeof(now) == 8, "a ptime is one 64-bit count");
  std::memcpy(seed, &now, 8);
  const void* where = seed;
  std::memcpy(seed + 8, &where, 8);
  RAND_seed(seed, sizeof(seed));
}

secure_string randomKey(std::size_t size) {
  secure_string key(size, '\0');
  randomize();
  if (size != 0) RAND_bytes(reinterpret_cast<unsigned char*>(&key[0]), static_cast<int>(size));
  return key;
}

}  // namespace crypto
}  // namespace zq
