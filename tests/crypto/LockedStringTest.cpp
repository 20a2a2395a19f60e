#include <zq/crypto/locked_string.h>

#include <zq/crypto/EncryptedStream.h>

#include <gtest/gtest.h>

namespace {

using zq::crypto::locked_string;
using zq::crypto::secure_string;

secure_string plain(const locked_string& s) { return s; }

TEST(LockedString, HoldsItsValueEncryptedAndGivesItBack) {
  const secure_string value = "correct horse battery staple";
  locked_string s(value);
  EXPECT_FALSE(s.empty());
  EXPECT_EQ(value, plain(s));
  EXPECT_TRUE(s == value);
  EXPECT_FALSE(s == secure_string("correct horse"));

  s = secure_string(1000, 'x');
  EXPECT_EQ(secure_string(1000, 'x'), plain(s));

  // An empty value: a key but no cipher text.
  locked_string e{secure_string()};
  EXPECT_TRUE(e.empty());
  EXPECT_EQ("", plain(e));
  EXPECT_TRUE(e == secure_string());
  s = secure_string();
  EXPECT_TRUE(s.empty());
  EXPECT_TRUE(locked_string() == secure_string());
}

// Separate keys: the values are decrypted and compared. One shared key: the cipher texts are
// compared, and every assignment draws a new vector.
TEST(LockedString, ComparesAsItsKeysAndCipherTextsAllow) {
  const secure_string value = "value";
  EXPECT_TRUE(locked_string() == locked_string());
  EXPECT_FALSE(locked_string() == locked_string(value));
  EXPECT_FALSE(locked_string(value) == locked_string());

  locked_string a, b;
  a = value;
  b = value;
  EXPECT_TRUE(a == b) << "separate keys: the plain texts are equal";
  b = secure_string("other");
  EXPECT_FALSE(a == b);

  locked_string c;
  c = a;
  EXPECT_TRUE(a == c) << "copies share the cipher text";
  a = value;
  c = value;
  EXPECT_FALSE(a == c) << "one key, two assignments of one value: two cipher texts";
  EXPECT_EQ(plain(a), plain(c));

  // A copy that shared the old cipher text keeps it.
  locked_string d(a);
  a = secure_string("new");
  EXPECT_EQ(value, plain(d));
  EXPECT_EQ("new", plain(a));
}

TEST(LockedString, ClearDropsTheKeySoTheNextAssignmentDrawsANewOne) {
  locked_string a, b;
  a = secure_string("value");
  b = a;
  a.clear();
  EXPECT_TRUE(a.empty());
  EXPECT_EQ("", plain(a));
  a = secure_string("value");
  EXPECT_TRUE(a == b) << "a new key: compared through the plain texts";

  // The key stays over an empty value: assignments after it still share the key with copies.
  locked_string c(secure_string("x"));
  locked_string d(c);
  c = secure_string();
  d = secure_string("y");
  c = secure_string("y");
  EXPECT_FALSE(c == d) << "still one key, so two cipher texts";
}

}  // namespace
