#include <zq/crypto/SymetricEncryption.h>

#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/rand.h>

#include <set>
#include <string>
#include <vector>

namespace {

using zq::SymetricEncryption;
using Bytes = std::vector<unsigned char>;
using Chars = std::vector<char>;

#define EXPECT_QUEUE_CLEAN() EXPECT_EQ(0ul, ERR_peek_error()) << "OpenSSL error left behind"

const Bytes kKey(32, 0x4B), kOtherKey(32, 0x4C), kIv(16, 0x11);
const unsigned char *const key = kKey.data(), *const iv = kIv.data();

template <class V>
std::string text(const V& v) {
  return std::string(v.begin(), v.end());
}

TEST(SymetricEncryptionTest, CentralFormsAndTheirCodes) {
  Bytes cipher, untouched{1, 2, 3};
  Chars plain;
  ASSERT_EQ(16, SymetricEncryption::encrypt(key, iv, "hello", 5, cipher));
  ASSERT_EQ(5, SymetricEncryption::decrypt(key, iv, cipher.data(), cipher.size(), plain));
  EXPECT_EQ("hello", text(plain));
  EXPECT_EQ(32, SymetricEncryption::encrypt(key, iv, "0123456789abcdef", 16, untouched)) << "a block of padding";

  // -1 before anything is read or sized; -2 without a key or vector (decryption has sized its
  // output by then); -3 without data behind a size.
  EXPECT_EQ(-1, SymetricEncryption::encrypt(key, iv, "x", 0x7FFFFFF0, untouched));
  EXPECT_EQ(-1, SymetricEncryption::decrypt(key, iv, cipher.data(), 0x7FFFFFF0, plain));
  EXPECT_EQ(32u + 5u, untouched.size() + plain.size());
  EXPECT_EQ(-2, SymetricEncryption::encrypt(nullptr, iv, "x", 1, untouched));
  EXPECT_EQ(-2, SymetricEncryption::encrypt(key, nullptr, "x", 1, untouched));
  EXPECT_EQ(32u, untouched.size());
  EXPECT_EQ(-2, SymetricEncryption::decrypt(nullptr, iv, cipher.data(), 16, plain));
  EXPECT_EQ(32u, plain.size());
  EXPECT_EQ(-3, SymetricEncryption::encrypt(key, iv, nullptr, 4, untouched));
  EXPECT_TRUE(untouched.empty());
  EXPECT_EQ(-3, SymetricEncryption::decrypt(key, iv, nullptr, 16, plain));

  // -4: the padding check of a wrong key, and cipher text that isn't whole blocks.
  EXPECT_EQ(-4, SymetricEncryption::decrypt(kOtherKey.data(), iv, cipher.data(), cipher.size(), plain));
  EXPECT_EQ(32u, plain.size()) << "size + 16, as written";
  EXPECT_EQ(-4, SymetricEncryption::decrypt(key, iv, cipher.data(), 15, plain));
  EXPECT_EQ(-4, SymetricEncryption::decrypt(key, iv, cipher.data(), 0, plain));
  EXPECT_QUEUE_CLEAN();

  // The bool forms: decryption sets a vector only for plain text, and empties a string first.
  Bytes ofNothing, outVector{'o', 'l', 'd'};
  std::string outString = "old";
  ASSERT_TRUE(SymetricEncryption::encrypt(key, iv, std::string(), ofNothing));
  EXPECT_TRUE(SymetricEncryption::decrypt(key, iv, ofNothing, outVector));
  EXPECT_TRUE(SymetricEncryption::decrypt(key, iv, ofNothing, outString));
  EXPECT_EQ("old", text(outVector));
  EXPECT_EQ("", outString);
  ASSERT_TRUE(SymetricEncryption::encrypt(key, iv, Bytes{'h', 'i'}, cipher));
  EXPECT_FALSE(SymetricEncryption::decrypt(kOtherKey.data(), iv, cipher, outVector));
  EXPECT_EQ("old", text(outVector));
  EXPECT_TRUE(SymetricEncryption::decrypt(key, iv, cipher, outVector) &&
              SymetricEncryption::decrypt(key, iv, cipher, outString));
  EXPECT_EQ("hi", text(outVector));
  EXPECT_EQ("hi", outString);
  EXPECT_QUEUE_CLEAN();
}

TEST(SymetricEncryptionTest, MessagesCarryTheirVector) {
  const Chars message = SymetricEncryption::encrypt(kKey, "hello", 5);
  ASSERT_EQ(32u, message.size());
  EXPECT_EQ("hello", text(SymetricEncryption::decrypt(kKey, message.data(), message.size())));
  EXPECT_NE(message, SymetricEncryption::encrypt(kKey, "hello", 5)) << "a fresh vector each time";
  EXPECT_EQ(32u, SymetricEncryption::encrypt(kKey, nullptr, 0).size());
  EXPECT_EQ(48u, SymetricEncryption::encrypt(kKey, "0123456789abcdef", 16).size());

  for (std::size_t size : {0, 31, 33}) {
    EXPECT_TRUE(SymetricEncryption::encrypt(Bytes(size, 0x4B), "hello", 5).empty()) << size;
    EXPECT_TRUE(SymetricEncryption::decrypt(Bytes(size, 0x4B), message.data(), message.size()).empty()) << size;
  }
  // 16 bytes: a vector alone; 17 and 33: no whole block; 32 made from nothing: no plain text.
  const Chars ofNothing = SymetricEncryption::encrypt(kKey, nullptr, 0);
  Chars longer = message;
  longer.push_back('x');
  EXPECT_TRUE(SymetricEncryption::decrypt(kKey, message.data(), 16).empty());
  EXPECT_TRUE(SymetricEncryption::decrypt(kKey, message.data(), 17).empty());
  EXPECT_TRUE(SymetricEncryption::decrypt(kKey, longer.data(), longer.size()).empty());
  EXPECT_TRUE(SymetricEncryption::decrypt(kKey, ofNothing.data(), ofNothing.size()).empty());
  EXPECT_TRUE(SymetricEncryption::decrypt(kOtherKey, message.data(), message.size()).empty());
  EXPECT_QUEUE_CLEAN();
}

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif
int failToDraw(unsigned char*, int) { return 0; }
int notSeeded() { return 0; }
const RAND_METHOD kFailing = {nullptr, failToDraw, nullptr, nullptr, failToDraw, notSeeded};

TEST(SymetricEncryptionTest, RandomBytesAndTheirFailure) {
  EXPECT_TRUE(SymetricEncryption::random(0).empty());
  EXPECT_NE(SymetricEncryption::random(32), SymetricEncryption::random(32));

  zq::test::LogCapture log;
  const RAND_METHOD* previous = RAND_get_rand_method();
  RAND_set_rand_method(&kFailing);
  const Bytes drawn = SymetricEncryption::random(24);
  RAND_set_rand_method(previous);
  EXPECT_EQ(24u, drawn.size());
  const std::vector<std::string> lines = log.linesWith("RAND_bytes failed");
  ASSERT_EQ(1u, lines.size());
  EXPECT_NE(std::string::npos, lines[0].find(" CRITICAL [zq::SymetricEncryption::random] RAND_bytes failed"))
      << lines[0];
  EXPECT_QUEUE_CLEAN();
}
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

std::string walk(const std::string& seed, std::size_t size, std::size_t salt) {
  return text(SymetricEncryption::random(seed, size, salt));
}

// Keys spun from the table are shared between parties: these walks must never change.
TEST(SymetricEncryptionTest, SeedWalkIsPinned) {
  EXPECT_EQ("fRsJxNw{", walk("zq", 8, 0));
  EXPECT_EQ("a!U\\~dKc", walk("zq", 8, 1));
  EXPECT_EQ("[6}LO*=QQI!QWW!BdJOI{{^x{DDxR%OJ", walk("shared secret", 32, 0));
  EXPECT_EQ("8.uWiiK66}66**6aDpie!!Bc!OOcQUfp", walk("shared secret", 32, 7));
  EXPECT_EQ("#{w$&G~&dkV%", walk("caf\xC3\xA9", 12, 0)) << "bytes above 0x7F count as negative";
  EXPECT_EQ("k$M,ok", walk("k", 6, 147)) << "the position runs down to 0 and starts over at size - 2";
}

TEST(SymetricEncryptionTest, SeedWalkDependsOnAllThreeArguments) {
  EXPECT_EQ(walk("seed text", 32, 0), walk("seed text", 32, 0));
  EXPECT_NE(walk("seed text", 32, 0), walk("seed text", 32, 1));
  EXPECT_NE(walk("seed text", 32, 0), walk("seed texT", 32, 0));
  EXPECT_EQ("", walk("seed text", 0, 5) + walk("", 8, 0)) << "nothing asked, or nothing to walk";

  // The first byte: the seed's last character at position (length + size + salt) % 154.
  EXPECT_EQ(walk("ab", 1, 0), walk("xb", 1, 0));
  EXPECT_EQ(walk("ab", 1, 0), walk("b", 1, 1));
  EXPECT_EQ(walk("ab", 1, 0), walk("ac", 1, 153));

  // One-character seeds read every entry of the table once: printable, every visible one there.
  std::set<char> seen;
  for (std::size_t salt = 0; salt < 154; ++salt) {
    const char c = walk("a", 1, salt).at(0);
    EXPECT_TRUE(c > 0x20 && c < 0x7F) << "entry " << salt << " is " << int(c);
    seen.insert(c);
  }
  EXPECT_EQ(94u, seen.size());
}

}  // namespace
