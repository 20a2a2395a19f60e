// Secure file operations and randomness: overwriting a file's content, replacing one file by
// another in one step, seeding OpenSSL's generator, drawing random keys.
#pragma once

#include <zq/Export.h>
#include <zq/crypto/SecureString.h>

#include <boost/filesystem/path.hpp>

#include <cstddef>

namespace zq {
namespace crypto {

// Seeds OpenSSL's generator from the time and a stack address when it says it needs seeding.
ZQ_API void randomize();

// `size` random bytes (binary, zeros included). randomKey(0) is empty.
ZQ_API secure_string randomKey(std::size_t size);

}  // namespace crypto
}  // namespace zq
