// SHA-crypt on any key and setting, held at the minimum rounds so that each run is short: the
// hash is deterministic and has the stored form, the setting's head and the digest's characters.
// (Its digest differs from other implementations' on purpose, so they are no reference.)
#include <zq/crypto/MessageDigest.h>

#include "FuzzSupport.h"

#include <cctype>
#include <cstring>
#include <string>

using zq::crypto::MessageDigest;
using zq::crypto::secure_string;

namespace {

// Any count written in the setting becomes the minimum, which every larger count costs more than.
std::string atMinimumRounds(std::string setting) {
  static const std::string kRounds = "rounds=";
  if (setting.size() < 3 || setting.compare(3, kRounds.size(), kRounds) != 0) return setting;
  const std::size_t digits = 3 + kRounds.size();
  std::size_t end = digits;
  while (end < setting.size() && setting[end] >= '0' && setting[end] <= '9') ++end;
  if (end == digits) return setting;
  return setting.replace(digits, end - digits, std::to_string(MessageDigest::ROUNDS_MIN));
}

bool inCryptAlphabet(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.' || c == '/'; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> fields = zq::fuzz::splitFields(data, size, 2);
  const std::string setting = atMinimumRounds(fields[1]);
  const std::string& key = fields[0];

  const secure_string hash =
      MessageDigest::crypt(secure_string(key.data(), key.size()), secure_string(setting.data(), setting.size()));
  const secure_string again =
      MessageDigest::crypt(secure_string(key.data(), key.size()), secure_string(setting.data(), setting.size()));
  ZQ_FUZZ_CHECK(hash == again);
  const bool sha512 = setting.compare(0, 3, "$6$") == 0;
  ZQ_FUZZ_CHECK(hash.compare(0, 3, sha512 ? "$6$" : "$5$") == 0);

  // The setting comes back as read (salt cut to 16 bytes), then "$" and the digest's characters.
  const std::size_t digestChars = sha512 ? 86 : 43;
  ZQ_FUZZ_CHECK(hash.size() > digestChars && hash[hash.size() - digestChars - 1] == '$');
  for (std::size_t i = hash.size() - digestChars; i < hash.size(); ++i) ZQ_FUZZ_CHECK(inCryptAlphabet(hash[i]));
  ZQ_FUZZ_CHECK(hash.size() <= 3 + std::strlen("rounds=999999999$") + MessageDigest::SALT_LEN_MAX + 1 + digestChars);
  return 0;
}
