// One-step AES on any key, vector and data: decryption reports within the documented codes and
// sizes, and what is encrypted under a key and vector decrypts back to it.
#include <zq/crypto/SymetricEncryption.h>

#include "FuzzSupport.h"

#include <cstring>
#include <string>
#include <vector>

using zq::SymetricEncryption;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  unsigned char key[SymetricEncryption::KEY_SIZE] = {};
  unsigned char iv[SymetricEncryption::BLOCK_SIZE] = {};
  const std::size_t keyBytes = size < sizeof key ? size : sizeof key;
  std::memcpy(key, data, keyBytes);
  data += keyBytes;
  size -= keyBytes;
  const std::size_t ivBytes = size < sizeof iv ? size : sizeof iv;
  std::memcpy(iv, data, ivBytes);
  data += ivBytes;
  size -= ivBytes;

  std::vector<char> plain;
  const int result = SymetricEncryption::decrypt(key, iv, data, size, plain);
  ZQ_FUZZ_CHECK(result >= -4 && result != -1 && result <= static_cast<int>(size));
  ZQ_FUZZ_CHECK(plain.size() ==
                (result >= 0 ? static_cast<std::size_t>(result) : size + SymetricEncryption::BLOCK_SIZE));

  const std::vector<unsigned char> keyVector(key, key + sizeof key);
  const char* text = reinterpret_cast<const char*>(data);
  (void)SymetricEncryption::decrypt(keyVector, text, size);

  std::vector<unsigned char> sealed;
  ZQ_FUZZ_CHECK(SymetricEncryption::encrypt(key, iv, std::string(text, size), sealed));
  std::string opened;
  ZQ_FUZZ_CHECK(SymetricEncryption::decrypt(key, iv, sealed, opened));
  ZQ_FUZZ_CHECK(opened == std::string(text, size));

  const std::vector<char> message = SymetricEncryption::encrypt(keyVector, text, size);
  ZQ_FUZZ_CHECK(message.size() == SymetricEncryption::BLOCK_SIZE + (size / 16 + 1) * 16);
  const std::vector<char> back = SymetricEncryption::decrypt(keyVector, message.data(), message.size());
  ZQ_FUZZ_CHECK(back == std::vector<char>(text, text + size));
  return 0;
}
