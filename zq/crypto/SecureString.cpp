#include <zq/crypto/SecureString.h>

#include <openssl/crypto.h>

namespace zq {
namespace crypto {

void zeroOut(void* p, std::size_t size) {
  // OPENSSL_cleanse is out of the compiler's sight, so the stores stay.
  if (p != nullptr && size != 0) OPENSSL_cleanse(p, size);
}

secure_string operator+(secure_string a, const std::string& b) {
  a.append(b);
  secure_string result(a);
  zeroOut(&a[0], a.size());  // also where `a` sits in its small buffer, which no allocator wipes
  return result;
}

}  // namespace crypto
}  // namespace zq
