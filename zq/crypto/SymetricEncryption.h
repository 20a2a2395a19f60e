// One-step AES-256-CBC for short messages with return codes, random bytes, and keys spun
// deterministically from a seed text over a fixed table of printable characters.
#pragma once

#include <zq/Export.h>

#include <cstddef>
#include <string>
#include <vector>

namespace zq {

// Static only; no shared state but the key table, made once and read from then on, so every
// function is safe on any thread. Nothing here wipes its buffers: use the crypto namespace for
// secrets that must not linger.
//
// Keys are KEY_SIZE bytes and vectors BLOCK_SIZE bytes; the raw-array forms read exactly that
// many. A message of the key-vector forms is the 16-byte vector followed by the cipher text.
//
// Made safe, other results unchanged: a null key or vector gives -2 and null data with a size
// gives -3, instead of a read through the null pointer; an empty seed gives an empty key
// instead of a read before the seed's first character; random(size) fills sizes past INT_MAX.
class ZQ_API SymetricEncryption {
 public:
  static constexpr std::size_t KEY_SIZE = 32;
  static constexpr std::size_t BLOCK_SIZE = 16;

  // The central forms. Result: bytes in `out`, or -1 for input above 0x7FFFFFEF bytes, -2 when
  // the cipher can't be set up, -3 when the update step fails, -4 when the final step fails
  // (for decryption, a wrong key or a cipher text that isn't whole blocks, mostly).
  // encrypt empties `out` on -3 and -4; decrypt leaves it at size + 16 bytes with what was
  // written.
  static int encrypt(const unsigned char key[], const unsigned char iv[], const char* data, std::size_t size,
                     std::vector<unsigned char>& out);
  static int decrypt(const unsigned char key[], const unsigned char iv[], const unsigned char* data, std::size_t size,
                     std::vector<char>& out);

  // Whether the central form gave 0 or more.
  static bool encrypt(const unsigned char key[], const unsigned char iv[], const std::string& data,
                      std::vector<unsigned char>& out);
  static bool encrypt(const unsigned char key[], const unsigned char iv[], const std::vector<unsigned char>& data,
                      std::vector<unsigned char>& out);
  // Whether the central form gave 0 or more; `out` changes only when there was plain text.
  static bool decrypt(const unsigned char key[], const unsigned char iv[], const std::vector<unsigned char>& data,
                      std::vector<unsigned char>& out);
  // As above, but `out` is emptied first.
  static bool decrypt(const unsigned char key[], const unsigned char iv[], const std::vector<unsigned char>& data,
                      std::string& out);

  // A fresh random vector followed by the cipher text; empty when the key isn't KEY_SIZE bytes
  // or encryption fails.
  static std::vector<char> encrypt(const std::vector<unsigned char>& key, const char* data, std::size_t size);
  // The plain text of such a message; empty when the key isn't KEY_SIZE bytes, the message is
  // shorter than 17 bytes, or decryption fails.
  static std::vector<char> decrypt(const std::vector<unsigned char>& key, const char* data, std::size_t size);

  // `size` bytes from OpenSSL's generator. If it fails, one Critical log line, and the bytes
  // come back as they are.
  static std::vector<unsigned char> random(std::size_t size);
  // `size` characters of the key table, picked by a walk fixed by the three arguments, so that
  // two parties with a shared seed text reach the same key. Empty for an empty seed.
  static std::vector<unsigned char> random(const std::string& seed, std::size_t size, std::size_t salt);

 private:
  SymetricEncryption() = delete;
};

}  // namespace zq
