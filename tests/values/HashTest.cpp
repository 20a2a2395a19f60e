#include <zq/values/Hash.h>

#include <gtest/gtest.h>

#include <string>

namespace {

unsigned int hashOf(const std::string& s) {
  return zq::Hash::hash(reinterpret_cast<const unsigned char*>(s.data()), s.size());
}

TEST(HashTest, KnownValuesAndFolding) {
  EXPECT_EQ(0u, zq::Hash::hash(nullptr, 0));
  EXPECT_EQ(0x41u, hashOf("A"));
  EXPECT_EQ((0x41u << 4) + 0x42u, hashOf("AB"));
  // Stored elsewhere: these must never change.
  EXPECT_EQ(0x03C0757Du, hashOf("www.example.com"));
  EXPECT_EQ(0x08657157u, hashOf("The quick brown fox jumps over the lazy dog"));
  // The top four bits fold into bits 5 to 8, written the long way here.
  for (const std::string& t : {std::string(300, '\xff'), std::string("a\0b", 3), std::string(9, 'z')}) {
    unsigned long long h = 0;
    for (unsigned char byte : t) {
      const unsigned long long s = ((h << 4) + byte) & 0xFFFFFFFFull;
      h = (s & 0x0FFFFFFFull) ^ ((s & 0xF0000000ull) >> 23);
    }
    EXPECT_EQ(h, hashOf(t));
  }
}

}  // namespace
