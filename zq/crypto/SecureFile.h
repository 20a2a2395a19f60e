// Secure file operations and randomness: overwriting a file's content, replacing one file by
// another in one step, seeding OpenSSL's generator, drawing random keys.
#pragma once

#include <zq/Export.h>
#include <zq/crypto/SecureString.h>

#include <boost/filesystem/path.hpp>

#include <cstddef>

namespace zq {
namespace crypto {

// Overwrites the content of `file` `passes` times: pass i with zeros, 0xFF bytes or random
// bytes by i % 3, in 4096-byte blocks, so the file grows to whole blocks and keeps its name.
// Each pass writes in place over the file's own blocks and is forced to the device. Passes
// below 1 do nothing. Throws boost::filesystem::filesystem_error for a file whose size can't be
// read (a missing file is never created); a file that can't be opened for writing is left.
ZQ_API void zeroOut(const boost::filesystem::path& file, int passes);

// Puts the content of `replacement` under the name `target` in one step and removes the name
// `replacement`; `target` keeps its permission bits. Both must be existing regular files.
// Atomic for `target`'s name, also across file systems (a copy in the target's folder is
// renamed over it): on false the target keeps its old content and nothing is left behind.
ZQ_API bool replaceFile(const boost::filesystem::path& target, const boost::filesystem::path& replacement);

// Seeds OpenSSL's generator from the time and a stack address when it says it needs seeding.
ZQ_API void randomize();

// `size` random bytes (binary, zeros included). randomKey(0) is empty.
ZQ_API secure_string randomKey(std::size_t size);

}  // namespace crypto
}  // namespace zq
