#include <zq/crypto/MessageDigest.h>

#include <zq/signals/Argument.h>
#include <zq/values/Base64.h>

#include "tests/support/Hex.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>

namespace {

using zq::crypto::MessageDigest;
using zq::crypto::secure_string;

std::string hex(const secure_string& bytes) { return zq::test::hexOf(bytes); }

std::string hashHex(int algorithm, const std::string& message) {
  MessageDigest md(static_cast<MessageDigest::Algorithm>(algorithm));
  md.append(message);
  return hex(md.digest());
}

const std::string k448 = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
const std::string k896 =
    "abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu";
const int kPbkdf2Sha256 = (10000 << 12) + 128 + MessageDigest::SHA256;

TEST(MessageDigest, PublishedVectors) {
  struct Vector {
    int algorithm;
    std::string message;
    const char* digest;
  } const vectors[] = {
      {MessageDigest::MD5, "", "d41d8cd98f00b204e9800998ecf8427e"},
      {MessageDigest::MD5, "abc", "900150983cd24fb0d6963f7d28e17f72"},
      {MessageDigest::MD5, "message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {MessageDigest::MD5, "12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
      {MessageDigest::MD4, "abc", "a448017aaf21d8525fc10ae87aa6729d"},
      {MessageDigest::SHA1, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {MessageDigest::SHA1, k448, "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
      {MessageDigest::DSS, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {MessageDigest::DSS1, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {MessageDigest::RIPEMD160, "abc", "8eb208f7e05d987a9b044a8e98c6b087f15a0bfc"},
      {MessageDigest::SHA224, "abc", "23097d223405d8228642a477bda255b32aadbce4bda0b3f7e36c9da7"},
      {MessageDigest::SHA256, "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {MessageDigest::SHA256, k448, "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
      {MessageDigest::SHA256, std::string(1000000, 'a'),
       "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
      {kPbkdf2Sha256, "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {MessageDigest::SHA384, "abc",
       "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca134c825a7"},
      {MessageDigest::SHA512, "abc",
       "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992a274fc1a836ba3c23a3feebbd454d442364"
       "3ce80e2a9ac94fa54ca49f"},
      {MessageDigest::SHA512, k896,
       "8e959b75dae313da8cf4f72814fc143f8f7779c6eb9f7fa17299aeadb6889018501d289e4900f7e4331b99dec4b5433ac7d329eeb6"
       "dd26545e96e55b874be909"},
      {MessageDigest::MD0, "abc", ""},
  };
  for (const Vector& v : vectors)
    EXPECT_EQ(v.digest, hashHex(v.algorithm, v.message))
        << MessageDigest::algorithmName(v.algorithm) << " of " << v.message.substr(0, 20);
}

TEST(MessageDigest, FeedingFormsAndCount) {
  const std::string text = "The quick brown fox jumps over the lazy dog";
  MessageDigest md(MessageDigest::SHA512);
  md.append(text.c_str(), 10);
  md.append(text.c_str() + 10, static_cast<std::size_t>(-1));  // up to the terminator
  md.append(text.c_str(), 0);
  md.append(nullptr, 5);
  EXPECT_EQ(text.size(), md.count());
  const secure_string whole = md.digest();
  EXPECT_EQ(hashHex(MessageDigest::SHA512, text), hex(whole));
  EXPECT_EQ(text.size(), md.count()) << "digest() keeps the count";

  md.clear();
  EXPECT_EQ(0u, md.count());
  md.append(zq::basic_stringref<char>(text.data(), 4));
  md.append(std::string(text, 4, 6));
  for (char c : text.substr(10)) md << c;
  EXPECT_EQ(whole, md.digest());

  const std::string withZero("a\0b", 3);
  md.clear();
  md << 'a' << '\0' << 'b';
  EXPECT_EQ(3u, md.count());
  EXPECT_EQ(hashHex(MessageDigest::SHA512, withZero), hex(md.digest()));
}

TEST(MessageDigest, CopiesOwnTheirContext) {
  MessageDigest first(MessageDigest::SHA256);
  first.append("ab", 2);
  {
    MessageDigest copy(first);
    copy.append("c", 1);
    EXPECT_EQ(hashHex(MessageDigest::SHA256, "abc"), hex(copy.digest()));
    EXPECT_EQ(3u, copy.count());
  }
  MessageDigest target(MessageDigest::MD5);
  target.append("zzz", 3);
  target = first;
  target.append("d", 1);
  first.append("x", 1);
  EXPECT_EQ(hashHex(MessageDigest::SHA256, "abd"), hex(target.digest()));
  EXPECT_EQ(hashHex(MessageDigest::SHA256, "abx"), hex(first.digest()));
  EXPECT_EQ(32, target.length());

  MessageDigest none(MessageDigest::SHA);
  target = none;
  target.append("abc", 3);
  EXPECT_EQ("", hex(target.digest()));
  target = first;  // and back to a working one
  target.clear();
  target.append("abc", 3);
  EXPECT_EQ(hashHex(MessageDigest::SHA256, "abc"), hex(target.digest()));
}

// SHA-0 and MDC2 are not in OpenSSL 3; they, like values outside the table, have no digest.
TEST(MessageDigest, ValuesWithoutDigest) {
  for (int value : {int(MessageDigest::SHA), int(MessageDigest::MDC2), 13, 127, -1, 128 + 13, 0x1005}) {
    MessageDigest md(static_cast<MessageDigest::Algorithm>(value));
    md.append("abc", 3);
    md << 'd';
    EXPECT_EQ(4u, md.count()) << value;
    EXPECT_EQ(0, md.length()) << value;
    EXPECT_EQ(0, MessageDigest::length(static_cast<MessageDigest::Algorithm>(value))) << value;
    EXPECT_TRUE(md.digest().empty()) << value;
    EXPECT_TRUE(md.digest_base64().empty()) << value;
  }
}

TEST(MessageDigest, Lengths) {
  const int lengths[13] = {0, 16, 16, 0, 0, 20, 20, 20, 20, 28, 32, 48, 64};
  for (int value = 0; value < 13; ++value) {
    const auto algorithm = static_cast<MessageDigest::Algorithm>(value);
    EXPECT_EQ(lengths[value], MessageDigest::length(algorithm)) << value;
    EXPECT_EQ(lengths[value], MessageDigest(algorithm).length()) << value;
    MessageDigest md(algorithm);
    EXPECT_EQ(static_cast<std::size_t>(lengths[value]), md.digest().size()) << value;
  }
  EXPECT_EQ(64, MessageDigest::length(static_cast<MessageDigest::Algorithm>((1 << 12) + 128 + 12)));
}

TEST(MessageDigest, Base64IsTheDigestOnOneLine) {
  MessageDigest md(MessageDigest::SHA512);
  md.append("abc", 3);
  MessageDigest copy(md);
  const secure_string raw = copy.digest();
  const secure_string text = md.digest_base64();
  EXPECT_EQ(88u, text.size());
  EXPECT_EQ(std::string::npos, text.find('\r'));
  EXPECT_EQ(zq::Base64::encode(std::string(raw.data(), raw.size()), zq::Base64::kNoLineBreaks),
            std::string(text.data(), text.size()));
  MessageDigest sha(MessageDigest::SHA1);
  sha.append("abc", 3);
  EXPECT_EQ("qZk+NkcGgWq6PiVxeFDCbJzQ2J0=", std::string(sha.digest_base64().c_str()));
}

TEST(MessageDigest, Names) {
  const char* names[13] = {"MD0",   "MD4",        "MD5",     "MDC2",    "SHA",     "SHA-1",  "DSS",
                           "DSS-1", "RIPEMD-160", "SHA-224", "SHA-256", "SHA-384", "SHA-512"};
  for (int value = 0; value < 13; ++value) {
    EXPECT_EQ(names[value], MessageDigest::algorithmName(value));
    EXPECT_EQ(value == 0 ? 10 : value, MessageDigest::algorithmFromName(std::to_string(value)));
    EXPECT_EQ(value, MessageDigest::algorithmFromName(names[value]));
  }
  EXPECT_EQ(0, MessageDigest::algorithmFromName("md0"));
  EXPECT_EQ(10, MessageDigest::algorithmFromName("sha-256"));
  EXPECT_EQ(8, MessageDigest::algorithmFromName("RipeMD-160"));
  EXPECT_EQ(10, MessageDigest::algorithmFromName("nonsense"));
  EXPECT_EQ(10, MessageDigest::algorithmFromName(""));
  for (const std::string& other : {std::string("SHA-1 "), std::string("SHA\xC3\xA4"), std::string("SHA-1\0x", 7)})
    EXPECT_EQ(10, MessageDigest::algorithmFromName(other));

  // Numbers: above 0 as they stand, leading blanks and a sign as atol reads them, 32-bit.
  EXPECT_EQ(5, MessageDigest::algorithmFromName("5abc"));
  EXPECT_EQ(12, MessageDigest::algorithmFromName(" +12"));
  EXPECT_EQ(10, MessageDigest::algorithmFromName("-5"));
  EXPECT_EQ(1000, MessageDigest::algorithmFromName("1000"));
  EXPECT_EQ(INT_MAX, MessageDigest::algorithmFromName("99999999999999999999"));
  EXPECT_EQ(kPbkdf2Sha256, MessageDigest::algorithmFromName(std::to_string(kPbkdf2Sha256)));

  // Outside the contract: an empty name rather than a crash.
  for (int value : {13, 127, -1, INT_MIN, 128 + 13, 0x1005}) EXPECT_EQ("", MessageDigest::algorithmName(value));
}

TEST(MessageDigest, Pbkdf2Names) {
  EXPECT_EQ(kPbkdf2Sha256, MessageDigest::algorithmFromName("PBKDF2;SHA-256;10000"));
  EXPECT_EQ("PBKDF2;SHA-256;10000", MessageDigest::algorithmName(kPbkdf2Sha256));
  EXPECT_EQ(4096 + 12 + 128, MessageDigest::algorithmFromName("pbkdf2;sha-512;1"));
  EXPECT_EQ("PBKDF2;MD0;0", MessageDigest::algorithmName(128));
  EXPECT_EQ(128 + 5, MessageDigest::algorithmFromName("PBKDF2;5;0"));
  EXPECT_EQ(128 + 10 + (7 << 12), MessageDigest::algorithmFromName("PBKDF2;unknown;7"));
  EXPECT_EQ(128 + 10 + (7 << 12), MessageDigest::algorithmFromName("PBKDF2;a;b;7")) << "the name runs to the last ;";
  // Nested: each level adds its count and flag.
  EXPECT_EQ(2 * 128 + 5 + (3 << 12) + (2 << 12), MessageDigest::algorithmFromName("PBKDF2;PBKDF2;SHA-1;2;3"));
  // The count is read as a 32-bit number and shifted out of the field.
  EXPECT_EQ(static_cast<int>((0x7FFFFFFFu << 12) + 138u),
            MessageDigest::algorithmFromName("PBKDF2;SHA-256;99999999999"));
  EXPECT_EQ(static_cast<int>((0x80001u << 12) + 138u), MessageDigest::algorithmFromName("PBKDF2;SHA-256;524289"));
  // Whatever the low byte says about the sign, the count prints as the value's shift.
  EXPECT_EQ("PBKDF2;SHA-1;-1", MessageDigest::algorithmName(static_cast<int>(0xFFFFF085u)));

  for (const char* bad : {"PBKDF2;;5", "PBKDF2;SHA-1;", "PBKDF2;SHA-1;12x", "PBKDF2;SHA-1", "PBKDF2SHA-1;5",
                          "xPBKDF2;SHA-1;5", "PBKDF2;SHA-1;-5"})
    EXPECT_EQ(10, MessageDigest::algorithmFromName(bad)) << bad;

  // A deep nesting is read without recursion.
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "PBKDF2;";
  deep += "SHA-1";
  for (int i = 0; i < 100000; ++i) deep += ";0";
  EXPECT_EQ(static_cast<int>(100000u * 128u + 5u), MessageDigest::algorithmFromName(deep));
}

}  // namespace
