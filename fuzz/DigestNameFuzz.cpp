// Digest names on any text: every text gives a value, and the name of a plain or single-PBKDF2
// value, when it has one, reads back to the same value.
#include <zq/crypto/MessageDigest.h>

#include "FuzzSupport.h"

#include <string>

using zq::crypto::MessageDigest;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const int value = MessageDigest::algorithmFromName(text);
  const std::string name = MessageDigest::algorithmName(value);
  // Nested PBKDF2 texts and counts past 2^19 make values no name stands for (the sum wraps).
  const bool named = value >= 0 && (value & 0xF00) == 0;
  if (named && !name.empty()) ZQ_FUZZ_CHECK(MessageDigest::algorithmFromName(name) == value);
  if ((value & 0x7F) <= MessageDigest::SHA512)
    (void)MessageDigest::length(static_cast<MessageDigest::Algorithm>(value & 0x7F));
  return 0;
}
