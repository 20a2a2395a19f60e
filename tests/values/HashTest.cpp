#include <zq/values/Hash.h>

#include <gtest/gtest.h>

#include <string>

namespace {

unsigned int hashOf(const std::string& s) {
  return zq::Hash::hash(reinterpret_cast<const unsigned char*>(s.data()), s.size());
}

// The same fold written the long way, to check the bit operations of the library's loop.
unsigned int referenceHash(const std::string& s) {
  unsigned long long h = 0;
  for (unsigned char byte : s) {
    const unsigned long long t = ((h << 4) + byte) & 0xFFFFFFFFull;
    const unsigned long long top = t & 0xF0000000ull;
    h = (t & 0x0FFFFFFFull) ^ (top >> 23);
  }
  return static_cast<unsigned int>(h);
}

TEST(HashTest, KnownValuesAndFolding) {
  EXPECT_EQ(0u, zq::Hash::hash(nullptr, 0));
  EXPECT_EQ(0x41u, hashOf("A"));
  EXPECT_EQ((0x41u << 4) + 0x42u, hashOf("AB"));
  // Fixed values, stored elsewhere: they must never change.
  EXPECT_EQ(0x03C0757Du, hashOf("www.example.com"));
  EXPECT_EQ(0x08657157u, hashOf("The quick brown fox jumps over the lazy dog"));
  // Long enough that the top bits fold back many times.
  const std::string texts[] = {"www.example.com", "192.168.100.200:8080", std::string(300, '\xff'),
                               std::string("a\0b", 3)};
  for (const std::string& t : texts) {
    EXPECT_EQ(referenceHash(t), hashOf(t)) << t;
    EXPECT_EQ(0u, hashOf(t) & 0xF0000000u) << "top four bits must be cleared";
  }
}

}  // namespace
