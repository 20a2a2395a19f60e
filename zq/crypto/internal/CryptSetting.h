// Reading the setting of a SHA-crypt hash. Inline, so that tests reach it; not for clients.
#pragma once

#include <zq/crypto/MessageDigest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <string_view>

namespace zq {
namespace crypto {
namespace internal {

struct CryptSetting {
  MessageDigest::Algorithm algorithm = MessageDigest::SHA256;
  std::size_t rounds = MessageDigest::ROUNDS_DEFAULT;  // as written, not yet clamped
  bool roundsCustom = false;
  std::string_view salt;  // the rest of the setting, uncut
};

// "$5$" or "$6$", an optional "rounds=DIGITS$", and the whole rest as the salt, "$" included. A
// setting of any other form means SHA-256, the default rounds and an empty salt. The count
// reads as atoi would, saturating at INT_MAX.
inline CryptSetting readCryptSetting(std::string_view setting) {
  CryptSetting result;
  if (setting.size() < 3 || setting[0] != '$' || (setting[1] != '5' && setting[1] != '6') || setting[2] != '$')
    return result;
  if (setting[1] == '6') result.algorithm = MessageDigest::SHA512;
  std::size_t start = 3;
  constexpr std::string_view kRounds = "rounds=";
  if (setting.substr(start, kRounds.size()) == kRounds) {
    const std::size_t digits = start + kRounds.size();
    std::size_t end = digits;
    std::size_t rounds = 0;
    for (; end < setting.size() && setting[end] >= '0' && setting[end] <= '9'; ++end)
      rounds = std::min<std::size_t>(INT_MAX, rounds * 10 + static_cast<std::size_t>(setting[end] - '0'));
    if (end > digits && end < setting.size() && setting[end] == '$') {
      result.rounds = rounds;
      result.roundsCustom = true;
      start = end + 1;
    }
  }
  result.salt = setting.substr(start);
  return result;
}

// First down to ROUNDS_MAX, then up to ROUNDS_MIN.
inline std::size_t clampRounds(std::size_t rounds) {
  return std::max(std::min(rounds, MessageDigest::ROUNDS_MAX), MessageDigest::ROUNDS_MIN);
}

}  // namespace internal
}  // namespace crypto
}  // namespace zq
