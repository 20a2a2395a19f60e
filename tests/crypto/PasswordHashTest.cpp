#include <zq/crypto/MessageDigest.h>
#include <zq/crypto/internal/CryptSetting.h>

#include <tests/support/LogCapture.h>

#include <crypt.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

using zq::crypto::MessageDigest;
using zq::crypto::secure_string;

const char kAlphabet[] = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

std::string plain(const secure_string& s) { return std::string(s.data(), s.size()); }

std::string cryptOf(const std::string& key, const std::string& setting) {
  return plain(
      MessageDigest::crypt(secure_string(key.data(), key.size()), secure_string(setting.data(), setting.size())));
}

// The hash's encoded digest: what follows its last "$".
std::string encodedPart(const std::string& hash) { return hash.substr(hash.rfind('$') + 1); }

// ---- the published scheme, as an independent reference ----

struct Layout {
  std::vector<std::vector<int>> groups;  // high, middle, low; then the closing pair or byte
  std::size_t size;
};

const Layout& layoutOf(bool sha512) {
  static const Layout l256 = {{{0, 10, 20},
                               {21, 1, 11},
                               {12, 22, 2},
                               {3, 13, 23},
                               {24, 4, 14},
                               {15, 25, 5},
                               {6, 16, 26},
                               {27, 7, 17},
                               {18, 28, 8},
                               {9, 19, 29},
                               {31, 30}},
                              32};
  static const Layout l512 = {
      {{0, 21, 42},  {22, 43, 1},  {44, 2, 23},  {3, 24, 45},  {25, 46, 4},  {47, 5, 26},  {6, 27, 48},  {28, 49, 7},
       {50, 8, 29},  {9, 30, 51},  {31, 52, 10}, {53, 11, 32}, {12, 33, 54}, {34, 55, 13}, {56, 14, 35}, {15, 36, 57},
       {37, 58, 16}, {59, 17, 38}, {18, 39, 60}, {40, 61, 19}, {62, 20, 41}, {63}},
      64};
  return sha512 ? l512 : l256;
}

// Characters a group of `bytes` takes: 4 for three, 3 for a pair, 2 for one.
std::size_t charsOf(std::size_t bytes) { return bytes + 1; }

// The raw digest of an encoded text, bytes read as unsigned (the published scheme).
std::vector<unsigned char> publishedDecode(const std::string& text, bool sha512) {
  const Layout& layout = layoutOf(sha512);
  std::vector<unsigned char> raw(layout.size);
  std::size_t pos = 0;
  for (const auto& group : layout.groups) {
    std::uint32_t word = 0;
    const std::size_t chars = charsOf(group.size());
    for (std::size_t c = 0; c < chars; ++c)
      word |= static_cast<std::uint32_t>(std::strchr(kAlphabet, text.at(pos + c)) - kAlphabet) << (6 * c);
    pos += chars;
    for (std::size_t b = 0; b < group.size(); ++b) raw[group[b]] = (word >> (8 * (group.size() - 1 - b))) & 0xFF;
  }
  return raw;
}

// The text of a raw digest with each byte taken as a signed char: a negative byte's set upper
// bits cover the bytes above it in its group.
std::string signedEncode(const std::vector<unsigned char>& raw, bool sha512) {
  std::string out;
  for (const auto& group : layoutOf(sha512).groups) {
    std::int64_t word = 0;
    for (int index : group) word = word * 256 | static_cast<signed char>(raw[index]);
    auto bits = static_cast<std::uint32_t>(word);
    for (std::size_t c = 0; c < charsOf(group.size()); ++c, bits >>= 6) out += kAlphabet[bits & 63];
  }
  return out;
}

// Digest A after its first part (before the rounds): decides whether the signed reading of its
// first byte changes the result.
std::vector<unsigned char> digestAFirst(const std::string& key, const std::string& salt, bool sha512) {
  const EVP_MD* md = sha512 ? EVP_sha512() : EVP_sha256();
  const std::size_t n = sha512 ? 64 : 32;
  unsigned char b[64];
  const std::string kskey = key + salt + key;
  EVP_Digest(kskey.data(), kskey.size(), b, nullptr, md, nullptr);
  std::string a = key + salt;
  std::size_t rest = key.size();
  for (; rest >= n; rest -= n) a.append(reinterpret_cast<char*>(b), n);
  a.append(reinterpret_cast<char*>(b), rest);
  for (std::size_t bits = key.size(); bits != 0; bits >>= 1)
    a += (bits & 1) != 0 ? std::string(reinterpret_cast<char*>(b), n) : key;
  std::vector<unsigned char> out(n);
  EVP_Digest(a.data(), a.size(), out.data(), nullptr, md, nullptr);
  return out;
}

std::string systemCrypt(const std::string& key, const std::string& setting) {
  crypt_data data;
  std::memset(&data, 0, sizeof(data));
  const char* result = crypt_r(key.c_str(), setting.c_str(), &data);
  return result != nullptr && result[0] == '$' ? result : std::string();
}

// ---- settings ----

TEST(PasswordHash, SettingForms) {
  const std::string key = "secret";
  const std::string h6 = cryptOf(key, "$6$rounds=10$abc");
  EXPECT_EQ("$6$rounds=1000$abc$", h6.substr(0, 19)) << "the count is clamped and shown clamped";
  EXPECT_EQ(19u + 86u, h6.size());
  EXPECT_EQ(h6, cryptOf(key, "$6$rounds=1000$abc"));

  const std::string h5 = cryptOf(key, "$5$abc");
  EXPECT_EQ("$5$abc$", h5.substr(0, 7));
  EXPECT_EQ(7u + 43u, h5.size());
  const std::string named = cryptOf(key, "$5$rounds=5000$abc");
  EXPECT_EQ("$5$rounds=5000$abc$" + encodedPart(h5), named) << "a named count is shown, the digest is the default's";

  // Settings that don't match mean SHA-256, 5000 rounds, an empty salt.
  const std::string bare = cryptOf(key, "abc");
  EXPECT_EQ("$5$$", bare.substr(0, 4));
  EXPECT_EQ(4u + 43u, bare.size());
  for (const char* other : {"", "$5", "$7$abc", "$55$abc", "5$abc", "$5$"})
    EXPECT_EQ(bare, cryptOf(key, other)) << other;

  // The salt is cut to 16 bytes, but not at "$".
  const std::string cut = cryptOf(key, "$5$0123456789abcdefXYZ");
  EXPECT_EQ("$5$0123456789abcdef$", cut.substr(0, 20));
  EXPECT_EQ(cut, cryptOf(key, "$5$0123456789abcdef"));
  const std::string dollar = cryptOf(key, "$5$ab$cd");
  EXPECT_EQ("$5$ab$cd$", dollar.substr(0, 9));
  EXPECT_NE(dollar, cryptOf(key, dollar)) << "a finished hash as the setting does not reproduce itself";
  EXPECT_EQ("$5$ab$cd$" + encodedPart(dollar), dollar);
  EXPECT_EQ("$5$rounds=abc$x$", cryptOf(key, "$5$rounds=abc$x").substr(0, 16));
  EXPECT_EQ("$5$rounds=$x$", cryptOf(key, "$5$rounds=$x").substr(0, 13));
  EXPECT_EQ("$5$rounds=1000$", cryptOf(key, "$5$rounds=1000").substr(0, 15)) << "no closing $: all salt";

  // A zero byte is data, in the salt and in the key.
  const std::string zeroSalt = cryptOf(key, std::string("$5$a\0b", 6));
  EXPECT_EQ(std::string("$5$a\0b$", 7), zeroSalt.substr(0, 7));
  EXPECT_NE(cryptOf("a", "$5$x"), cryptOf(std::string("a\0b", 3), "$5$x"));
}

TEST(PasswordHash, CountsAreReadSaturatingAndClamped) {
  using zq::crypto::internal::clampRounds;
  using zq::crypto::internal::readCryptSetting;
  const auto huge = readCryptSetting("$6$rounds=2000000000$x");
  EXPECT_EQ(MessageDigest::SHA512, huge.algorithm);
  EXPECT_TRUE(huge.roundsCustom);
  EXPECT_EQ("x", huge.salt);
  EXPECT_EQ(999999999u, clampRounds(huge.rounds));
  const auto overLong = readCryptSetting("$5$rounds=99999999999999999999999$x");
  EXPECT_EQ(static_cast<std::size_t>(INT_MAX), overLong.rounds);
  EXPECT_EQ(999999999u, clampRounds(overLong.rounds));
  EXPECT_EQ(1000u, clampRounds(readCryptSetting("$5$rounds=0$x").rounds));
  EXPECT_EQ(1000u, clampRounds(0));
  EXPECT_EQ(5000u, clampRounds(readCryptSetting("$5$x").rounds));
  EXPECT_FALSE(readCryptSetting("$5$x").roundsCustom);
  EXPECT_EQ(1234u, readCryptSetting("$5$rounds=0001234$x").rounds);
}

TEST(PasswordHash, KeysOfEveryShape) {
  for (const char* setting : {"$5$rounds=1000$salt", "$6$rounds=1000$salt"}) {
    const bool sha512 = setting[1] == '6';
    const std::size_t n = sha512 ? 64 : 32;
    std::vector<std::string> hashes;
    for (const std::string& key : {std::string(), std::string(n - 1, 'k'), std::string(n, 'k'), std::string(n + 1, 'k'),
                                   std::string(3 * n, 'k')}) {
      const std::string h = cryptOf(key, setting);
      EXPECT_EQ(std::strlen(setting) + 1 + (sha512 ? 86 : 43), h.size()) << key.size();
      EXPECT_EQ(std::string::npos, encodedPart(h).find_first_not_of(kAlphabet)) << key.size();
      for (const std::string& earlier : hashes) EXPECT_NE(earlier, h) << key.size();
      hashes.push_back(h);
    }
  }
}

// Where the two schemes must agree (no "$" in the salt, A's first byte below 0x80), the raw
// digests are the system's; elsewhere they differ.
TEST(PasswordHash, AgainstTheSystemCrypt) {
  int agreeing = 0, differing = 0;
  const std::string keys[] = {"", "password", std::string(32, 'x'), std::string(64, 'y'), "a much longer pass phrase"};
  for (const char* prefix : {"$5$", "$6$rounds=1000$", "$5$rounds=1000$", "$6$"}) {
    const bool sha512 = prefix[1] == '6';
    for (int i = 0; i < 12; ++i) {
      const std::string& key = keys[i % 5];
      const std::string salt = "s" + std::to_string(i) + (i % 3 == 0 ? "longer.salt/16bX" : "");
      const std::string setting = prefix + salt;
      const std::string ours = cryptOf(key, setting);
      const std::string system = systemCrypt(key, setting);
      ASSERT_FALSE(system.empty()) << setting;
      const bool agree = digestAFirst(key, salt.substr(0, 16), sha512)[0] < 0x80;
      if (!agree) {
        ++differing;
        EXPECT_NE(ours, system) << setting;
        continue;
      }
      ++agreeing;
      const std::vector<unsigned char> raw = publishedDecode(encodedPart(system), sha512);
      EXPECT_EQ(system.substr(0, system.rfind('$') + 1) + signedEncode(raw, sha512), ours) << setting;
      // Groups of bytes all below 0x80 read the same in both.
      std::size_t pos = 0;
      for (const auto& group : layoutOf(sha512).groups) {
        bool low = true;
        for (int index : group) low = low && raw[index] < 0x80;
        const std::size_t chars = charsOf(group.size());
        if (low) {
          EXPECT_EQ(encodedPart(system).substr(pos, chars), encodedPart(ours).substr(pos, chars)) << setting;
        }
        pos += chars;
      }
    }
  }
  EXPECT_GT(agreeing, 5);
  EXPECT_GT(differing, 5);

  // A "$" in the salt: the system stops there, this scheme does not.
  EXPECT_EQ("$5$ab$", systemCrypt("key", "$5$ab$cd").substr(0, 6));
  EXPECT_NE(systemCrypt("key", "$5$ab$cd"), cryptOf("key", "$5$ab$cd"));
}

TEST(PasswordHash, OtherAlgorithmsAreNotImplemented) {
  struct Probe : MessageDigest {
    static secure_string run(Algorithm algorithm) {
      return crypt_sha(secure_string("key"), secure_string("salt"), algorithm, 1000, false);
    }
  };
  zq::test::LogCapture log(zq::Log::Debug);
  EXPECT_TRUE(Probe::run(MessageDigest::MD5).empty());
  ASSERT_EQ(1u, log.bodies().size());
  EXPECT_EQ("[zq::crypto::MessageDigest::crypt] not implemented", log.bodies()[0]);
  EXPECT_EQ(cryptOf("key", "$5$rounds=1000$salt"),
            "$5$rounds=1000$" + plain(Probe::run(MessageDigest::SHA256)).substr(3));
}

// ---- PBKDF2 ----

std::vector<unsigned char> hashBytes(const std::string& password, const std::string& salt, int iterations,
                                     int algorithm) {
  const secure_string h = MessageDigest::passwordHash(secure_string(password.data(), password.size()),
                                                      secure_string(salt.data(), salt.size()), iterations,
                                                      static_cast<MessageDigest::Algorithm>(algorithm));
  EXPECT_EQ(64u, h.size());
  return std::vector<unsigned char>(h.begin(), h.end());
}

std::vector<unsigned char> prefixOf(std::vector<unsigned char> bytes, std::size_t n) {
  bytes.resize(n);
  return bytes;
}

TEST(PasswordHash, Pbkdf2PublishedVectors) {
  using B = std::vector<unsigned char>;
  // PBKDF2-HMAC-SHA1 (RFC 6070): the first bytes of the 64.
  EXPECT_EQ((B{0x0c, 0x60, 0xc8, 0x0f, 0x96, 0x1f, 0x0e, 0x71, 0xf3, 0xa9,
               0xb5, 0x24, 0xaf, 0x60, 0x12, 0x06, 0x2f, 0xe0, 0x37, 0xa6}),
            prefixOf(hashBytes("password", "salt", 1, MessageDigest::SHA1), 20));
  EXPECT_EQ((B{0xea, 0x6c, 0x01, 0x4d, 0xc7, 0x2d, 0x6f, 0x8c, 0xcd, 0x1e,
               0xd9, 0x2a, 0xce, 0x1d, 0x41, 0xf0, 0xd8, 0xde, 0x89, 0x57}),
            prefixOf(hashBytes("password", "salt", 2, MessageDigest::SHA1), 20));
  EXPECT_EQ((B{0x4b, 0x00, 0x79, 0x01, 0xb7, 0x65, 0x48, 0x9a, 0xbe, 0xad,
               0x49, 0xd9, 0x26, 0xf7, 0x21, 0xd0, 0x65, 0xa4, 0x29, 0xc1}),
            prefixOf(hashBytes("password", "salt", 4096, MessageDigest::SHA1), 20));
  EXPECT_EQ(
      (B{0x3d, 0x2e, 0xec, 0x4f, 0xe4, 0x1c, 0x84, 0x9b, 0x80, 0xc8, 0xd8, 0x36, 0x62,
         0xc0, 0xe4, 0x4a, 0x8b, 0x29, 0x1a, 0x96, 0x4c, 0xf2, 0xf0, 0x70, 0x38}),
      prefixOf(hashBytes("passwordPASSWORDpassword", "saltSALTsaltSALTsaltSALTsaltSALTsalt", 4096, MessageDigest::SHA1),
               25));
  EXPECT_EQ((B{0x56, 0xfa, 0x6a, 0xa7, 0x55, 0x48, 0x09, 0x9d, 0xcc, 0x37, 0xd7, 0xf0, 0x34, 0x25, 0xe0, 0xc3}),
            prefixOf(hashBytes(std::string("pass\0word", 9), std::string("sa\0lt", 5), 4096, MessageDigest::SHA1), 16));

  // PBKDF2-HMAC-SHA256 (RFC 7914): all 64 bytes.
  EXPECT_EQ((B{0x55, 0xac, 0x04, 0x6e, 0x56, 0xe3, 0x08, 0x9f, 0xec, 0x16, 0x91, 0xc2, 0x25, 0x44, 0xb6, 0x05,
               0xf9, 0x41, 0x85, 0x21, 0x6d, 0xde, 0x04, 0x65, 0xe6, 0x8b, 0x9d, 0x57, 0xc2, 0x0d, 0xac, 0xbc,
               0x49, 0xca, 0x9c, 0xcc, 0xf1, 0x79, 0xb6, 0x45, 0x99, 0x16, 0x64, 0xb3, 0x9d, 0x77, 0xef, 0x31,
               0x7c, 0x71, 0xb8, 0x45, 0xb1, 0xe3, 0x0b, 0xd5, 0x09, 0x11, 0x20, 0x41, 0xd3, 0xa1, 0x97, 0x83}),
            hashBytes("passwd", "salt", 1, MessageDigest::SHA256));
  EXPECT_EQ((B{0x4d, 0xdc, 0xd8, 0xf6, 0x0b, 0x98, 0xbe, 0x21, 0x83, 0x0c, 0xee, 0x5e, 0xf2, 0x27, 0x01, 0xf9,
               0x64, 0x1a, 0x44, 0x18, 0xd0, 0x4c, 0x04, 0x14, 0xae, 0xff, 0x08, 0x87, 0x6b, 0x34, 0xab, 0x56,
               0xa1, 0xd4, 0x25, 0xa1, 0x22, 0x58, 0x33, 0x54, 0x9a, 0xdb, 0x84, 0x1b, 0x51, 0xc9, 0xb3, 0x17,
               0x6a, 0x27, 0x2b, 0xde, 0xbb, 0xa1, 0xd0, 0x78, 0x47, 0x8f, 0x62, 0xb3, 0x97, 0xf3, 0x3c, 0x8d}),
            hashBytes("Password", "NaCl", 80000, MessageDigest::SHA256));
}

TEST(PasswordHash, Pbkdf2EdgesAndDigests) {
  const std::vector<unsigned char> zeros(64, 0);
  // 64 bytes whatever the digest; a PBKDF2 value stands for its digest, its own count unread.
  auto reference = [](const std::string& p, const std::string& s, int iterations, const EVP_MD* md) {
    std::vector<unsigned char> out(64);
    PKCS5_PBKDF2_HMAC(p.data(), static_cast<int>(p.size()), reinterpret_cast<const unsigned char*>(s.data()),
                      static_cast<int>(s.size()), iterations, md, 64, out.data());
    return out;
  };
  EXPECT_EQ(reference("pw", "salt", 3, EVP_md5()), hashBytes("pw", "salt", 3, MessageDigest::MD5));
  EXPECT_EQ(reference("pw", "salt", 3, EVP_sha512()), hashBytes("pw", "salt", 3, MessageDigest::SHA512));
  EXPECT_EQ(reference("", "", 2, EVP_sha256()), hashBytes("", "", 2, MessageDigest::SHA256));
  EXPECT_EQ(hashBytes("pw", "salt", 3, MessageDigest::SHA256),
            hashBytes("pw", "salt", 3, MessageDigest::algorithmFromName("PBKDF2;SHA-256;10000")));
  EXPECT_EQ(hashBytes("pw", "salt", 3, MessageDigest::SHA1), hashBytes("pw", "salt", 3, MessageDigest::DSS1));
  const auto md4 = hashBytes("pw", "salt", 3, MessageDigest::MD4);
  EXPECT_NE(zeros, md4);
  EXPECT_NE(hashBytes("pw", "salt", 3, MessageDigest::MD5), md4);

  // No digest, no count: the zero bytes stay.
  for (int algorithm : {int(MessageDigest::MD0), int(MessageDigest::SHA), int(MessageDigest::MDC2), 13, -1})
    EXPECT_EQ(zeros, hashBytes("pw", "salt", 3, algorithm)) << algorithm;
  for (int iterations : {0, -1, INT_MIN}) EXPECT_EQ(zeros, hashBytes("pw", "salt", iterations, 10)) << iterations;
}

}  // namespace
