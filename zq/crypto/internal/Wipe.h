// Wiping of the strings that an operation of the cryptography layer owns.
#pragma once

#include <zq/crypto/SecureString.h>

namespace zq {
namespace crypto {
namespace internal {

// Zeroes all of a string's storage: its heap buffer is wiped again when released, but a value
// in its small buffer is seen by no allocator.
inline void wipe(secure_string& s) { zeroOut(s.data(), s.capacity()); }

}  // namespace internal
}  // namespace crypto
}  // namespace zq
