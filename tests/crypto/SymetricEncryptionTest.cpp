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

const Bytes kKey(32, 0x4B), kOtherKey(32, 0x4C);
const Bytes kIv(16, 0x11);

std::string text(const Bytes& b) { return std::string(b.begin(), b.end()); }
std::string text(const Chars& c) { return std::string(c.begin(), c.end()); }

TEST(SymetricEncryptionTest, CentralFormsAndTheirCodes) {
  Bytes cipher;
  ASSERT_EQ(16, SymetricEncryption::encrypt(kKey.data(), kIv.data(), "hello", 5, cipher));
  ASSERT_EQ(16u, cipher.size());
  Chars plain;
  ASSERT_EQ(5, SymetricEncryption::decrypt(kKey.data(), kIv.data(), cipher.data(), cipher.size(), plain));
  EXPECT_EQ("hello", text(plain));
  // Whole blocks gain a block of padding; nothing encrypts to one block.
  EXPECT_EQ(32, SymetricEncryption::encrypt(kKey.data(), kIv.data(), std::string(16, 'x').data(), 16, cipher));
  EXPECT_EQ(16, SymetricEncryption::encrypt(kKey.data(), kIv.data(), nullptr, 0, cipher));
  EXPECT_EQ(0, SymetricEncryption::decrypt(kKey.data(), kIv.data(), cipher.data(), cipher.size(), plain));
  EXPECT_TRUE(plain.empty());

  // -1: above 0x7FFFFFEF bytes, before anything is read or sized.
  Bytes untouched{1, 2, 3};
  Chars untouchedPlain{'a'};
  EXPECT_EQ(-1, SymetricEncryption::encrypt(kKey.data(), kIv.data(), "x", 0x7FFFFFF0, untouched));
  EXPECT_EQ(-1, SymetricEncryption::decrypt(kKey.data(), kIv.data(), cipher.data(), 0x7FFFFFF0, untouchedPlain));
  EXPECT_EQ((Bytes{1, 2, 3}), untouched);
  EXPECT_EQ(1u, untouchedPlain.size());

  // -2: no key or vector. Decryption has sized its output already.
  EXPECT_EQ(-2, SymetricEncryption::encrypt(nullptr, kIv.data(), "x", 1, untouched));
  EXPECT_EQ(-2, SymetricEncryption::encrypt(kKey.data(), nullptr, "x", 1, untouched));
  EXPECT_EQ((Bytes{1, 2, 3}), untouched);
  EXPECT_EQ(-2, SymetricEncryption::decrypt(nullptr, kIv.data(), cipher.data(), 16, plain));
  EXPECT_EQ(32u, plain.size());

  // -3: no data behind a size.
  EXPECT_EQ(-3, SymetricEncryption::encrypt(kKey.data(), kIv.data(), nullptr, 4, untouched));
  EXPECT_TRUE(untouched.empty());
  EXPECT_EQ(-3, SymetricEncryption::decrypt(kKey.data(), kIv.data(), nullptr, 16, plain));

  // -4: the padding check of a wrong key, and cipher text that isn't whole blocks. The
  // output keeps its size + 16 bytes.
  ASSERT_EQ(16, SymetricEncryption::encrypt(kKey.data(), kIv.data(), "hello", 5, cipher));
  EXPECT_EQ(-4, SymetricEncryption::decrypt(kOtherKey.data(), kIv.data(), cipher.data(), cipher.size(), plain));
  EXPECT_EQ(32u, plain.size());
  EXPECT_EQ(-4, SymetricEncryption::decrypt(kKey.data(), kIv.data(), cipher.data(), 15, plain));
  EXPECT_EQ(-4, SymetricEncryption::decrypt(kKey.data(), kIv.data(), cipher.data(), 0, plain));
  EXPECT_QUEUE_CLEAN();
}

TEST(SymetricEncryptionTest, BoolFormsSetOutputOnlyForPlainText) {
  Bytes cipher;
  ASSERT_TRUE(SymetricEncryption::encrypt(kKey.data(), kIv.data(), std::string("text"), cipher));
  Bytes fromVector;
  ASSERT_TRUE(SymetricEncryption::encrypt(kKey.data(), kIv.data(), Bytes{'t', 'e', 'x', 't'}, fromVector));
  EXPECT_EQ(cipher, fromVector);

  Bytes outVector{'o', 'l', 'd'};
  std::string outString = "old";
  EXPECT_TRUE(SymetricEncryption::decrypt(kKey.data(), kIv.data(), cipher, outVector));
  EXPECT_TRUE(SymetricEncryption::decrypt(kKey.data(), kIv.data(), cipher, outString));
  EXPECT_EQ("text", text(outVector));
  EXPECT_EQ("text", outString);

  // Empty plain text: true, but only the string is touched (emptied first).
  Bytes ofNothing;
  ASSERT_TRUE(SymetricEncryption::encrypt(kKey.data(), kIv.data(), std::string(), ofNothing));
  outString = "old";
  EXPECT_TRUE(SymetricEncryption::decrypt(kKey.data(), kIv.data(), ofNothing, outVector));
  EXPECT_TRUE(SymetricEncryption::decrypt(kKey.data(), kIv.data(), ofNothing, outString));
  EXPECT_EQ("text", text(outVector));
  EXPECT_EQ("", outString);

  // Failure: false, the vector kept, the string emptied.
  outString = "old";
  EXPECT_FALSE(SymetricEncryption::decrypt(kOtherKey.data(), kIv.data(), cipher, outVector));
  EXPECT_FALSE(SymetricEncryption::decrypt(kOtherKey.data(), kIv.data(), cipher, outString));
  EXPECT_EQ("text", text(outVector));
  EXPECT_EQ("", outString);
  EXPECT_QUEUE_CLEAN();
}

TEST(SymetricEncryptionTest, MessagesCarryTheirVector) {
  const Chars message = SymetricEncryption::encrypt(kKey, "hello", 5);
  ASSERT_EQ(32u, message.size());
  EXPECT_EQ("hello", text(SymetricEncryption::decrypt(kKey, message.data(), message.size())));
  EXPECT_NE(message, SymetricEncryption::encrypt(kKey, "hello", 5)) << "a fresh vector each time";

  // The vector in front is the one the central form uses.
  Chars plain;
  const auto* raw = reinterpret_cast<const unsigned char*>(message.data());
  EXPECT_EQ(5, SymetricEncryption::decrypt(kKey.data(), raw, raw + 16, 16, plain));

  EXPECT_EQ(32u, SymetricEncryption::encrypt(kKey, nullptr, 0).size());
  EXPECT_EQ(32u, SymetricEncryption::encrypt(kKey, std::string(15, 'x').data(), 15).size());
  EXPECT_EQ(48u, SymetricEncryption::encrypt(kKey, std::string(16, 'x').data(), 16).size());

  // Keys of any other size give nothing, either way.
  for (std::size_t size : {0, 16, 31, 33}) {
    const Bytes key(size, 0x4B);
    EXPECT_TRUE(SymetricEncryption::encrypt(key, "hello", 5).empty()) << size;
    EXPECT_TRUE(SymetricEncryption::decrypt(key, message.data(), message.size()).empty()) << size;
  }

  // 16 bytes: a vector alone; 17: no whole block; 32 made from nothing: no plain text.
  const Chars ofNothing = SymetricEncryption::encrypt(kKey, nullptr, 0);
  EXPECT_TRUE(SymetricEncryption::decrypt(kKey, message.data(), 16).empty());
  EXPECT_TRUE(SymetricEncryption::decrypt(kKey, message.data(), 17).empty());
  EXPECT_TRUE(SymetricEncryption::decrypt(kKey, message.data(), 33).empty());
  EXPECT_TRUE(SymetricEncryption::decrypt(kKey, ofNothing.data(), ofNothing.size()).empty());
  EXPECT_TRUE(SymetricEncryption::decrypt(kKey, nullptr, 32).empty());
  EXPECT_TRUE(SymetricEncryption::decrypt(kOtherKey, message.data(), message.size()).empty());
  EXPECT_QUEUE_CLEAN();
}

TEST(SymetricEncryptionTest, RandomBytes) {
  EXPECT_TRUE(SymetricEncryption::random(0).empty());
  const Bytes a = SymetricEncryption::random(32), b = SymetricEncryption::random(32);
  EXPECT_EQ(32u, a.size());
  EXPECT_NE(a, b);
}

// A generator that always fails, put in place for the scope of one test.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif
int failToDraw(unsigned char*, int) { return 0; }
int notSeeded() { return 0; }
const RAND_METHOD kFailing = {nullptr, failToDraw, nullptr, nullptr, failToDraw, notSeeded};
class FailingGenerator {
 public:
  FailingGenerator() : m_previous(RAND_get_rand_method()) { RAND_set_rand_method(&kFailing); }
  ~FailingGenerator() { RAND_set_rand_method(m_previous); }

 private:
  const RAND_METHOD* m_previous;
};
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

TEST(SymetricEncryptionTest, FailedDrawIsLoggedAndReturned) {
  zq::test::LogCapture log;
  Bytes drawn;
  {
    FailingGenerator failing;
    drawn = SymetricEncryption::random(24);
  }
  EXPECT_EQ(24u, drawn.size());
  const std::vector<std::string> lines = log.linesWith("RAND_bytes failed");
  ASSERT_EQ(1u, lines.size());
  EXPECT_NE(std::string::npos, lines[0].find(" CRITICAL [zq::SymetricEncryption::random] RAND_bytes failed"))
      << lines[0];
  EXPECT_QUEUE_CLEAN();
}

std::string walk(const std::string& seed, std::size_t size, std::size_t salt) {
  return text(SymetricEncryption::random(seed, size, salt));
}

// Keys spun from the table are shared between parties: these walks must never change.
TEST(SymetricEncryptionTest, SeedWalkIsPinned) {
  EXPECT_EQ("fRsJxNw{", walk("zq", 8, 0));
  EXPECT_EQ("a!U\\~dKc", walk("zq", 8, 1));
  EXPECT_EQ("[6}LO*=QQI!QWW!BdJOI{{^x{DDxR%OJ", walk("shared secret", 32, 0));
  EXPECT_EQ("8.uWiiK66}66**6aDpie!!Bc!OOcQUfp", walk("shared secret", 32, 7));
  // A seed byte above 0x7F counts as negative.
  EXPECT_EQ("#{w$&G~&dkV%", walk("caf\xC3\xA9", 12, 0));
  // The position runs down to 0 and starts over at size - 2.
  EXPECT_EQ("k$M,ok", walk("k", 6, 147));
  EXPECT_EQ("8PPCCuuT", walk("ab", 8, 144));
}

TEST(SymetricEncryptionTest, SeedWalkDependsOnAllThreeArguments) {
  EXPECT_EQ(walk("seed text", 32, 0), walk("seed text", 32, 0));
  EXPECT_NE(walk("seed text", 32, 0), walk("seed text", 32, 1));
  EXPECT_NE(walk("seed text", 32, 0), walk("seed texT", 32, 0));
  EXPECT_NE(walk("seed text", 32, 0).substr(0, 16), walk("seed text", 16, 0));
  EXPECT_EQ("", walk("seed text", 0, 5));
  EXPECT_EQ("", walk("", 8, 0)) << "an empty seed has nothing to walk";

  // The first byte comes from the seed's last character at position (length + size + salt):
  // the rest of the seed plays no part, and salt moves the position.
  EXPECT_EQ(walk("ab", 1, 0), walk("xb", 1, 0));
  EXPECT_EQ(walk("ab", 1, 0), walk("b", 1, 1));
  EXPECT_EQ(walk("ab", 1, 0), walk("ab", 1, 154));
  EXPECT_EQ(walk("ab", 1, 0), walk("ac", 1, 153));
}

TEST(SymetricEncryptionTest, TableHoldsPrintableCharactersOnly) {
  // One-character seeds read the table at (c + 2 + salt) % 154: every entry, once each.
  std::set<char> seen;
  for (std::size_t salt = 0; salt < 154; ++salt) {
    const std::string c = walk("a", 1, salt);
    ASSERT_EQ(1u, c.size());
    EXPECT_TRUE(c[0] > 0x20 && c[0] < 0x7F) << "entry " << salt << " is " << int(c[0]);
    seen.insert(c[0]);
  }
  EXPECT_EQ(94u, seen.size()) << "every visible character appears";
  EXPECT_EQ(walk("a", 1, 0), walk("a", 1, 154));
}

}  // namespace
