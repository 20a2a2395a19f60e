#include <zq/values/Base64.h>

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using zq::Base64;

const int kPad = 0;
const int kNoPad = Base64::kNoPadding;
const int kNoBreak = Base64::kNoLineBreaks;
const int kAllFlags[] = {0, kNoPad, kNoBreak, kNoPad | kNoBreak};

std::string bytes(std::size_t n, unsigned seed = 1) {
  std::mt19937 gen(seed);
  std::string s(n, '\0');
  for (char& c : s) c = static_cast<char>(gen() & 0xFF);
  return s;
}

// Encodes through the buffer form with a buffer of exactly calcEncodedLength.
std::string encodeExact(const std::string& data, int flags) {
  std::vector<char> out(Base64::calcEncodedLength(data.size(), flags));
  const std::size_t n =
      Base64::encode(reinterpret_cast<const unsigned char*>(data.data()), data.size(), out.data(), out.size(), flags);
  return std::string(out.data(), n);
}

std::string decodeBuffer(const std::string& text) {
  std::vector<unsigned char> out(Base64::calcDencodedLength(text.data(), text.size()) + 1);
  const std::size_t n = Base64::decode(text.data(), text.size(), out.data(), out.size());
  return std::string(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(n));
}

TEST(Base64Test, TableIsTheStandardAlphabet) {
  EXPECT_EQ(0, std::memcmp(Base64::sm_Table, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/", 64));
}

TEST(Base64Test, Rfc4648VectorsUnderAllFlags) {
  const struct {
    const char* plain;
    const char* padded;
    const char* unpadded;
  } vectors[] = {{"f", "Zg==", "Zg"},
                 {"fo", "Zm8=", "Zm8"},
                 {"foo", "Zm9v", "Zm9v"},
                 {"foob", "Zm9vYg==", "Zm9vYg"},
                 {"fooba", "Zm9vYmE=", "Zm9vYmE"},
                 {"foobar", "Zm9vYmFy", "Zm9vYmFy"},
                 {"Man", "TWFu", "TWFu"},
                 {"Ma", "TWE=", "TWE"},
                 {"M", "TQ==", "TQ"}};
  for (const auto& v : vectors) {
    for (int flags : kAllFlags) {
      const std::string expected = (flags & kNoPad) ? v.unpadded : v.padded;
      EXPECT_EQ(expected, Base64::encode(v.plain, flags)) << v.plain << " flags " << flags;
      EXPECT_EQ(expected, encodeExact(v.plain, flags)) << v.plain << " flags " << flags;
      EXPECT_EQ(v.plain, Base64::decode(expected)) << expected;
    }
  }
  EXPECT_EQ("", Base64::encode(""));
  EXPECT_EQ("", Base64::decode(""));
}

TEST(Base64Test, LinesOf76WithCrLf) {
  const std::string in57 = bytes(57);
  const std::string in58 = bytes(58);
  const std::string line = Base64::encode(in57, kNoBreak);
  ASSERT_EQ(76u, line.size());

  // A line that ends exactly at the end of the data keeps its break.
  EXPECT_EQ(line + "\r\n", Base64::encode(in57, kPad));
  EXPECT_EQ(line, Base64::encode(in57, kNoBreak));
  EXPECT_EQ(line + "\r\n", Base64::encode(in57, kNoPad));

  const std::string tail58 = Base64::encode(in58.substr(57), kNoBreak);  // two characters and "=="
  ASSERT_EQ(4u, tail58.size());
  EXPECT_EQ("==", tail58.substr(2));
  EXPECT_EQ(line + "\r\n" + tail58, Base64::encode(in58, kPad));
  EXPECT_EQ(line + "\r\n" + tail58.substr(0, 2), Base64::encode(in58, kNoPad));
  EXPECT_EQ(line + tail58, Base64::encode(in58, kNoBreak));

  // 114 bytes: two full lines, both broken; 115 adds a short tail after the second break.
  const std::string in115 = bytes(115);
  const std::string two = Base64::encode(in115.substr(0, 114));
  EXPECT_EQ(156u, two.size());
  EXPECT_EQ("\r\n", two.substr(76, 2));
  EXPECT_EQ("\r\n", two.substr(154, 2));
  EXPECT_EQ(two + Base64::encode(in115.substr(114)), Base64::encode(in115));
}

TEST(Base64Test, LengthCalculations) {
  EXPECT_EQ(4u + 2u, Base64::calcEncodedLength(1, kPad));
  EXPECT_EQ(4u, Base64::calcEncodedLength(1, kNoPad | kNoBreak));
  EXPECT_EQ(76u + 4u, Base64::calcEncodedLength(57, kPad));
  EXPECT_EQ(76u, Base64::calcEncodedLength(57, kNoBreak));
  EXPECT_EQ(80u + 4u, Base64::calcEncodedLength(58, kPad));
  EXPECT_EQ(2u, Base64::calcEncodedLength(0, kPad));

  EXPECT_EQ(3u, Base64::calcDencodedLength("TWFu", 4));
  EXPECT_EQ(1u, Base64::calcDencodedLength("TQ==", 4));
  EXPECT_EQ(3u, Base64::calcDencodedLength("TWE", 3));   // an upper bound
  EXPECT_EQ(0u, Base64::calcDencodedLength("====", 4));  // never below zero
  EXPECT_EQ(0u, Base64::calcDencodedLength(nullptr, 8));
}

// Random binary data of every length up to several lines, under every flag: the buffer size is
// never short of the output, nothing is written past the count, and decoding gives the data back.
TEST(Base64Test, RoundTripsAtEveryLength) {
  for (std::size_t size = 1; size <= 400; size += (size < 200 ? 1 : 37)) {
    const std::string data = bytes(size, static_cast<unsigned>(size));
    for (int flags : kAllFlags) {
      const std::size_t need = Base64::calcEncodedLength(size, flags);
      std::vector<char> out(need + 16, '#');
      const std::size_t n =
          Base64::encode(reinterpret_cast<const unsigned char*>(data.data()), size, out.data(), need, flags);
      ASSERT_GT(n, 0u) << size << " flags " << flags;
      ASSERT_LE(n, need) << size << " flags " << flags;
      ASSERT_EQ('#', out[n]) << "wrote past its count at " << size;
      const std::string text(out.data(), n);
      ASSERT_EQ(data, decodeBuffer(text)) << size << " flags " << flags;
      ASSERT_EQ(text, Base64::encode(data, flags)) << "string form differs at " << size;
    }
  }
  // The string form of decode stops at the first zero byte; the buffer form keeps it.
  const std::string withZero("ab\0cd", 5);
  EXPECT_EQ("ab", Base64::decode(Base64::encode(withZero)));
  EXPECT_EQ(withZero, decodeBuffer(Base64::encode(withZero)));
}

TEST(Base64Test, RefusesWhatItCannotDoWithoutWriting) {
  const unsigned char data[] = {'M', 'a', 'n', 'M'};
  for (int flags : kAllFlags) {
    const std::size_t need = Base64::calcEncodedLength(sizeof data, flags);
    std::vector<char> out(need, '#');
    EXPECT_EQ(0u, Base64::encode(data, sizeof data, out.data(), need - 1, flags)) << flags;
    EXPECT_EQ(std::string(need, '#'), std::string(out.begin(), out.end())) << "nothing written";
    EXPECT_EQ(0u, Base64::encode(data, 0, out.data(), need, flags));
    EXPECT_EQ(0u, Base64::encode(nullptr, 3, out.data(), need, flags));
    EXPECT_EQ(0u, Base64::encode(data, sizeof data, nullptr, need, flags));
  }
  unsigned char buf[8] = {0};
  EXPECT_EQ(0u, Base64::decode("TWFu", 4, buf, 0));
  EXPECT_EQ(0u, Base64::decode("TWFu", 0, buf, sizeof buf));
  EXPECT_EQ(0u, Base64::decode(nullptr, 4, buf, sizeof buf));
  EXPECT_EQ(0u, Base64::decode("TWFu", 4, nullptr, sizeof buf));
}

TEST(Base64Test, DecodePassesOverForeignCharacters) {
  const std::string data = bytes(300, 7);
  const std::string clean = Base64::encode(data, kNoBreak);
  const std::string broken = Base64::encode(data);
  ASSERT_NE(clean, broken);
  EXPECT_EQ(data, decodeBuffer(broken));

  // Blanks, tabs, punctuation and bytes above 127 anywhere, in and between groups.
  std::string noisy;
  for (std::size_t i = 0; i < clean.size(); ++i) {
    noisy += clean[i];
    if (i % 3 == 0) noisy += ' ';
    if (i % 7 == 0) noisy += "\t\r\n";
    if (i % 11 == 0) noisy += "\xC3\xA9*";
  }
  EXPECT_EQ(data, decodeBuffer(noisy));
  EXPECT_EQ("Man", Base64::decode(" T W\nF u "));
  EXPECT_EQ("Man", Base64::decode("TWFu===="));  // surplus padding is passed over too

  // Leftover bits are dropped: one character alone gives nothing, a group of three two bytes.
  EXPECT_EQ("", decodeBuffer("T"));
  EXPECT_EQ("Ma", decodeBuffer("TWE"));
  EXPECT_EQ("", decodeBuffer("!!!!"));
}

}  // namespace
