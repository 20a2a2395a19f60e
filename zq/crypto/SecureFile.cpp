#include <zq/crypto/SecureFile.h>

#include <zq/platform/FileReplace.h>

#include <openssl/rand.h>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

namespace zq {
namespace crypto {

void zeroOut(const boost::filesystem::path& file, int passes) {
  constexpr std::size_t kBlock = 4096;
  unsigned char block[kBlock];
  for (int pass = 0; pass < passes; ++pass) {
    const int kind = pass % 3;
    if (kind != 2) std::memset(block, kind == 0 ? 0x00 : 0xFF, kBlock);
    // Before opening, so that a missing file throws and is not created; each pass sees the
    // size the one before left.
    const std::uintmax_t size = boost::filesystem::file_size(file);
    platform::OverwriteFile out(file.string());
    for (std::uintmax_t i = 0; i < (size + kBlock - 1) / kBlock; ++i) {
      if (kind == 2) RAND_bytes(block, static_cast<int>(kBlock));
      if (!out.write(block, kBlock)) break;
    }
    out.sync();
  }
}

bool replaceFile(const boost::filesystem::path& target, const boost::filesystem::path& replacement) {
  return platform::replaceFile(target.string(), replacement.string());
}

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
  // RAND_bytes counts in int: a larger key is drawn in parts.
  for (std::size_t done = 0; done < size;) {
    const std::size_t part = std::min<std::size_t>(size - done, INT_MAX);
    RAND_bytes(reinterpret_cast<unsigned char*>(&key[done]), static_cast<int>(part));
    done += part;
  }
  return key;
}

}  // namespace crypto
}  // namespace zq
