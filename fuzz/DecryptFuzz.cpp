// The layer's string decryption on any data and key: data shorter than one vector is refused
// with the documented exception, anything longer decrypts to at most its cipher text's size, and
// what the layer encrypts under a key decrypts back under the same key padded with blanks.
#include <zq/crypto/EncryptedStream.h>

#include "FuzzSupport.h"

#include <stdexcept>
#include <string>

using zq::crypto::secure_string;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> fields = zq::fuzz::splitFields(data, size, 2);
  const std::string key = fields[0].substr(0, 32);
  const std::string& payload = fields[1];
  secure_string paddedKey(key.data(), key.size());
  paddedKey.resize(32, ' ');

  try {
    const secure_string plain =
        zq::crypto::decrypt(secure_string(payload.data(), payload.size()), secure_string(paddedKey));
    ZQ_FUZZ_CHECK(payload.size() >= 16);
    ZQ_FUZZ_CHECK(plain.size() <= payload.size() - 16);
  } catch (const std::out_of_range&) {
    ZQ_FUZZ_CHECK(payload.size() < 16);
  }

  const secure_string encrypted =
      zq::crypto::encrypt(secure_string(payload.data(), payload.size()), secure_string(key.data(), key.size()));
  ZQ_FUZZ_CHECK(encrypted.size() == 16 + (payload.size() / 16 + 1) * 16);
  const secure_string back = zq::crypto::decrypt(secure_string(encrypted), secure_string(paddedKey));
  ZQ_FUZZ_CHECK(back.size() == payload.size() && std::string(back.data(), back.size()) == payload);
  return 0;
}
