#include <zq/values/Base64.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using zq::Base64;

const int kNoPad = Base64::kNoPadding;
const int kNoBreak = Base64::kNoLineBreaks;
const int kAllFlags[] = {0, kNoPad, kNoBreak, kNoPad | kNoBreak};

std::string bytes(std::size_t n, unsigned seed = 1) {
  std::mt19937 gen(seed);
  std::string s(n, '\0');
  for (char& c : s) c = static_cast<char>(gen() & 0xFF);
  return s;
}

// The buffer form, given exactly `room` characters (default: what calcEncodedLength asks for).
std::string encodeBuffer(const std::string& data, int flags, std::size_t room = 0) {
  if (room == 0) room = Base64::calcEncodedLength(data.size(), flags);
  std::vector<char> out(room + 8, '#');
  const auto* in = reinterpret_cast<const unsigned char*>(data.data());
  const std::size_t n = Base64::encode(in, data.size(), out.data(), room, flags);
  EXPECT_EQ('#', out[n]) << "wrote past its count";
  return std::string(out.data(), n);
}

std::string decodeBuffer(const std::string& text) {
  std::vector<unsigned char> out(Base64::calcDencodedLength(text.data(), text.size()) + 1);
  const std::size_t n = Base64::decode(text.data(), text.size(), out.data(), out.size());
  return std::string(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(n));
}

TEST(Base64Test, Rfc4648VectorsUnderAllFlags) {
  EXPECT_EQ(0, std::memcmp(Base64::sm_Table, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/", 64));
  const char* vectors[][2] = {{"f", "Zg=="},        {"fo", "Zm8="},        {"foo", "Zm9v"},
                              {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
                              {"Man", "TWFu"},      {"Ma", "TWE="},        {"M", "TQ=="}};
  for (const auto& v : vectors) {
    for (int flags : kAllFlags) {
      std::string expected = v[1];
      if (flags & kNoPad) expected.erase(std::remove(expected.begin(), expected.end(), '='), expected.end());
      EXPECT_EQ(expected + expected, Base64::encode(v[0], flags) + encodeBuffer(v[0], flags)) << flags;
      EXPECT_EQ(v[0], Base64::decode(expected));
    }
  }
  EXPECT_EQ("", Base64::encode("") + Base64::decode(""));
}

TEST(Base64Test, LinesOf76WithCrLf) {
  const std::string in58 = bytes(58), in57 = in58.substr(0, 57);
  const std::string line = Base64::encode(in57, kNoBreak);
  ASSERT_EQ(76u, line.size());
  // A line that ends exactly at the end of the data keeps its break.
  EXPECT_EQ(line + "\r\n", Base64::encode(in57));
  EXPECT_EQ(line + "\r\n", Base64::encode(in57, kNoPad));

  const std::string tail = Base64::encode(in58.substr(57), kNoBreak);
  ASSERT_EQ("==", tail.substr(2));
  EXPECT_EQ(line + "\r\n" + tail, Base64::encode(in58));
  EXPECT_EQ(line + "\r\n" + tail.substr(0, 2), Base64::encode(in58, kNoPad));
  EXPECT_EQ(line + tail, Base64::encode(in58, kNoBreak));

  const std::string in114 = bytes(114);  // two full lines, each with its break
  EXPECT_EQ(Base64::encode(in114.substr(0, 57)) + Base64::encode(in114.substr(57)), Base64::encode(in114));
}

TEST(Base64Test, LengthCalculations) {
  const std::size_t encoded[][3] = {{1, 0, 6}, {1, kNoPad | kNoBreak, 4}, {57, 0, 80}, {57, kNoBreak, 76}, {58, 0, 84},
                                    {0, 0, 2}};
  for (const auto& e : encoded) EXPECT_EQ(e[2], Base64::calcEncodedLength(e[0], int(e[1]))) << e[0] << " " << e[1];

  // An upper bound, never below zero.
  for (const auto& d : {std::make_pair("TWFu", 3u), {"TQ==", 1u}, {"TWE", 3u}, {"====", 0u}, {"\r\n", 2u}})
    EXPECT_EQ(d.second, Base64::calcDencodedLength(d.first, std::strlen(d.first))) << d.first;
  EXPECT_EQ(0u, Base64::calcDencodedLength(nullptr, 8));
}

// Surplus "=" lowered the bound below what decode writes, so a buffer sized by it overflowed.
TEST(Base64Test, DecodedLengthBoundsSurplusPadding) {
  for (const char* text : {"ZAm8====", "TWFuTWFu======", "TWE=====", "T=====", "TWFu=\r\n===="}) {
    const std::size_t bound = Base64::calcDencodedLength(text, std::strlen(text));
    std::vector<unsigned char> out(bound + 8, 0xAA);
    const std::size_t written = Base64::decode(text, std::strlen(text), out.data(), out.size());
    EXPECT_LE(written, bound) << text;
  }
  EXPECT_EQ(3u, Base64::calcDencodedLength("ZAm8====", 8));
  EXPECT_EQ(0u, Base64::calcDencodedLength("====", 4));
  EXPECT_EQ(1u, Base64::calcDencodedLength("Zg===", 5)) << "as before where decode stays within it";
}

// Random binary data of every length up to several lines, under every flag, through both forms.
TEST(Base64Test, RoundTripsAtEveryLength) {
  for (std::size_t size = 1; size <= 400; size += (size < 200 ? 1 : 37)) {
    const std::string data = bytes(size, static_cast<unsigned>(size));
    for (int flags : kAllFlags) {
      const std::string text = encodeBuffer(data, flags);
      ASSERT_EQ(data, decodeBuffer(text)) << size << " flags " << flags;
      ASSERT_EQ(text, Base64::encode(data, flags)) << size << " flags " << flags;
    }
  }
  // The string form of decode stops at the first zero byte; the buffer form keeps it.
  const std::string withZero("ab\0cd", 5);
  EXPECT_EQ("ab", Base64::decode(Base64::encode(withZero)));
  EXPECT_EQ(withZero, decodeBuffer(Base64::encode(withZero)));
}

TEST(Base64Test, RefusesWhatItCannotDoWithoutWriting) {
  for (int flags : kAllFlags)  // one short of the room asked for; encodeBuffer checks that nothing is written
    EXPECT_EQ("", encodeBuffer("ManM", flags, Base64::calcEncodedLength(4, flags) - 1)) << flags;
  const unsigned char data[] = "Man";
  char out[16];
  unsigned char buf[8];
  EXPECT_EQ(0u, Base64::encode(data, 0, out, 16, 0) + Base64::encode(nullptr, 3, out, 16, 0) +
                    Base64::encode(data, 3, nullptr, 16, 0));
  EXPECT_EQ(0u, Base64::decode("TWFu", 4, buf, 0) + Base64::decode("TWFu", 0, buf, 8) +
                    Base64::decode(nullptr, 4, buf, 8) + Base64::decode("TWFu", 4, nullptr, 8));
}

TEST(Base64Test, DecodePassesOverForeignCharacters) {
  const std::string data = bytes(300, 7);
  const std::string clean = Base64::encode(data, kNoBreak);
  // Blanks, line breaks, punctuation and bytes above 127, in and between groups.
  std::string noisy;
  for (std::size_t i = 0; i < clean.size(); ++i) noisy += clean[i] + std::string(i % 5 ? " " : "\t\r\n\xC3\xA9*");
  EXPECT_EQ(data, decodeBuffer(noisy));
  EXPECT_EQ("Man", Base64::decode("TWFu===="));
  // Leftover bits are dropped.
  EXPECT_EQ("", decodeBuffer("T"));
  EXPECT_EQ("Ma", decodeBuffer("TWE"));
}

}  // namespace
