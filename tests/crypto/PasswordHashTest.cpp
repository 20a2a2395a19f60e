#include <zq/crypto/MessageDigest.h>
#include <zq/crypto/internal/CryptSetting.h>

#include <tests/support/Hex.h>
#include <tests/support/LogCapture.h>

#include <crypt.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <climits>
#include <cstdint>
#include <cstdio>
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

// The published order of the digest's bytes in the text: groups of three (high, middle, low),
// then the closing pair (SHA-256) or byte (SHA-512).
struct Layout {
  std::vector<std::vector<int>> groups;
  std::size_t size;
};

Layout layoutOf(bool sha512) {
  static const int k256[] = {0,  10, 20, 21, 1,  11, 12, 22, 2,  3,  13, 23, 24, 4,  14,
                             15, 25, 5,  6,  16, 26, 27, 7,  17, 18, 28, 8,  9,  19, 29};
  static const int k512[] = {0,  21, 42, 22, 43, 1,  44, 2,  23, 3,  24, 45, 25, 46, 4,  47, 5,  26, 6,  27, 48,
                             28, 49, 7,  50, 8,  29, 9,  30, 51, 31, 52, 10, 53, 11, 32, 12, 33, 54, 34, 55, 13,
                             56, 14, 35, 15, 36, 57, 37, 58, 16, 59, 17, 38, 18, 39, 60, 40, 61, 19, 62, 20, 41};
  Layout layout{{}, sha512 ? 64u : 32u};
  const int* order = sha512 ? k512 : k256;
  for (std::size_t g = 0; g < (sha512 ? 21u : 10u); ++g)
    layout.groups.push_back({order[3 * g], order[3 * g + 1], order[3 * g + 2]});
  layout.groups.push_back(sha512 ? std::vector<int>{63} : std::vector<int>{31, 30});
  return layout;
}

// Characters a group of `bytes` takes: 4 for three, 3 for a pair, 2 for one.
std::size_t charsOf(std::size_t bytes) { return bytes + 1; }

// The raw digest of an encoded text, bytes read as unsigned (the published scheme).
std::vector<unsigned char> publishedDecode(const std::string& text, bool sha512) {
  const Layout layout = layoutOf(sha512);
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

// Where the two schemes must agree (no "$" in the salt, A's first byte below 0x80), the raw
// digests are the system's; elsewhere they differ.
TEST(PasswordHash, AgainstTheSystemCrypt) {
  int agreeing = 0, differing = 0;
  // Keys around the digest sizes: B goes into A whole, in part, or both.
  const std::string keys[] = {"",
                              "password",
                              std::string(31, 'k'),
                              std::string(32, 'k'),
                              std::string(33, 'k'),
                              std::string(64, 'k'),
                              std::string(65, 'k'),
                              std::string(192, 'k')};
  for (const char* prefix : {"$5$", "$6$rounds=1000$", "$5$rounds=1000$", "$6$"}) {
    const bool sha512 = prefix[1] == '6';
    for (int i = 0; i < 16; ++i) {
      const std::string& key = keys[i % 8];
      const std::string salt = "s" + std::to_string(i) + (i % 3 == 0 ? "longer.salt/16bX" : "");
      const std::string setting = prefix + salt;
      const std::string ours = cryptOf(key, setting);
      const std::string system = systemCrypt(key, setting);
      ASSERT_FALSE(system.empty()) << setting;
      EXPECT_EQ(system.size(), ours.size()) << setting;
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

using zq::test::hexOf;

std::string hashHex(const std::string& password, const std::string& salt, int iterations, int algorithm) {
  return hexOf(MessageDigest::passwordHash(secure_string(password.data(), password.size()),
                                           secure_string(salt.data(), salt.size()), iterations,
                                           static_cast<MessageDigest::Algorithm>(algorithm)));
}

TEST(PasswordHash, Pbkdf2PublishedVectors) {
  // PBKDF2-HMAC-SHA1 (RFC 6070): the first bytes of the 64.
  const int sha1 = MessageDigest::SHA1;
  EXPECT_EQ("0c60c80f961f0e71f3a9b524af6012062fe037a6", hashHex("password", "salt", 1, sha1).substr(0, 40));
  EXPECT_EQ("ea6c014dc72d6f8ccd1ed92ace1d41f0d8de8957", hashHex("password", "salt", 2, sha1).substr(0, 40));
  EXPECT_EQ("4b007901b765489abead49d926f721d065a429c1", hashHex("password", "salt", 4096, sha1).substr(0, 40));
  EXPECT_EQ("3d2eec4fe41c849b80c8d83662c0e44a8b291a964cf2f07038",
            hashHex("passwordPASSWORDpassword", "saltSALTsaltSALTsaltSALTsaltSALTsalt", 4096, sha1).substr(0, 50));
  EXPECT_EQ("56fa6aa75548099dcc37d7f03425e0c3",
            hashHex(std::string("pass\0word", 9), std::string("sa\0lt", 5), 4096, sha1).substr(0, 32));
  // PBKDF2-HMAC-SHA256 (RFC 7914): all 64 bytes.
  EXPECT_EQ(
      "55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc"
      "49ca9cccf179b645991664b39d77ef317c71b845b1e30bd509112041d3a19783",
      hashHex("passwd", "salt", 1, MessageDigest::SHA256));
  EXPECT_EQ(
      "4ddcd8f60b98be21830cee5ef22701f9641a4418d04c0414aeff08876b34ab56"
      "a1d425a1225833549adb841b51c9b3176a272bdebba1d078478f62b397f33c8d",
      hashHex("Password", "NaCl", 80000, MessageDigest::SHA256));
}

TEST(PasswordHash, Pbkdf2EdgesAndDigests) {
  const std::string zeros(128, '0');
  // 64 bytes whatever the digest; a PBKDF2 value stands for its digest, its own count unread.
  auto reference = [](const std::string& p, const std::string& s, const EVP_MD* md) {
    unsigned char out[64];
    PKCS5_PBKDF2_HMAC(p.data(), static_cast<int>(p.size()), reinterpret_cast<const unsigned char*>(s.data()),
                      static_cast<int>(s.size()), 3, md, 64, out);
    return hexOf(out);
  };
  EXPECT_EQ(reference("pw", "salt", EVP_md5()), hashHex("pw", "salt", 3, MessageDigest::MD5));
  EXPECT_EQ(reference("pw", "salt", EVP_sha512()), hashHex("pw", "salt", 3, MessageDigest::SHA512));
  EXPECT_EQ(reference("", "", EVP_sha256()), hashHex("", "", 3, MessageDigest::SHA256));
  EXPECT_EQ(hashHex("pw", "salt", 3, MessageDigest::SHA256),
            hashHex("pw", "salt", 3, MessageDigest::algorithmFromName("PBKDF2;SHA-256;10000")));
  EXPECT_EQ(hashHex("pw", "salt", 3, MessageDigest::SHA1), hashHex("pw", "salt", 3, MessageDigest::DSS1));
  const std::string md4 = hashHex("pw", "salt", 3, MessageDigest::MD4);
  EXPECT_NE(zeros, md4);
  EXPECT_NE(hashHex("pw", "salt", 3, MessageDigest::MD5), md4);

  // No digest, no count: the zero bytes stay.
  for (int algorithm : {int(MessageDigest::MD0), int(MessageDigest::SHA), int(MessageDigest::MDC2), 13, -1})
    EXPECT_EQ(zeros, hashHex("pw", "salt", 3, algorithm)) << algorithm;
  for (int iterations : {0, -1, INT_MIN}) EXPECT_EQ(zeros, hashHex("pw", "salt", iterations, 10)) << iterations;
}

}  // namespace
