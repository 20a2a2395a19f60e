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
  EXPECT_EQ(0x6162u, hashOf(std::string("a\0b", 3)));  // a zero byte counts
  // Stored elsewhere: these must never change. The longer texts fold the top four bits back many times.
  EXPECT_EQ(0x03C0757Du, hashOf("www.example.com"));
  EXPECT_EQ(0x08657157u, hashOf("The quick brown fox jumps over the lazy dog"));
  EXPECT_EQ(0x0800010Fu, hashOf(std::string(300, '\xff')));
}

}  // namespace
