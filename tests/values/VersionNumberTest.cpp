#include <zq/values/VersionNumber.h>

#include <zq/foundation/Exception.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using zq::VersionNumber;

// The fields as one text, so that a whole parse is checked in one comparison.
std::wstring fields(const VersionNumber& v) {
  const VersionNumber numbers(v.getNumber(0), v.getNumber(1), v.getNumber(2), v.getNumber(3));
  return v.getPrefix() + L"|" + numbers.toString() + L"|" + v.getPostfix();
}

TEST(VersionNumberTest, ParsesPrefixNumbersAndPostfix) {
  // A leading "m" runs to the "V", so digits join the prefix and the blank is skipped; only one word of
  // postfix is read; delimiters are not checked.
  // clang-format off
  const wchar_t* cases[][2] = {
      {L"1.2.3.4", L"|1.2.3.4|"}, {L"V1.2.3.4", L"V|1.2.3.4|"}, {L"Main-V1.2.3.4", L"Main-V|1.2.3.4|"},
      {L"main 4.2V1.0", L"main4.2V|1.0.0.0|"}, {L"Firmware 7.8.9.10", L"Firmware|7.8.9.10|"},
      {L"1.2.3.4-beta", L"|1.2.3.4|-beta"}, {L"1.2.3.4 rc 1", L"|1.2.3.4|rc"}, {L"1-2_3 4", L"|1.2.3.4|"},
      {L"1.2", L"|1.2.0.0|"}, {L"", L"|0.0.0.0|"}, {L"4294967295.0.0.1", L"|4294967295.0.0.1|"}};
  // clang-format on
  for (const auto& c : cases) {
    VersionNumber v;
    v.fromString(c[0]);
    EXPECT_EQ(std::wstring(c[1]) + c[1], fields(VersionNumber(std::wstring(c[0]))) + fields(v));
  }
}

TEST(VersionNumberTest, KeepsWhatTheTextDoesNotReach) {
  VersionNumber v(L"Old", 9, 8, 7, 6, L"-x");
  v.fromString(L"1.2");
  EXPECT_EQ(L"|1.2.7.6|", fields(v));
  // "M" without a "V": everything is prefix and the numbers stay.
  v.fromString(L"M1.2.3.4");
  EXPECT_EQ(L"M1.2.3.4|1.2.7.6|", fields(v));

  // Letters where a number stands: fail bit only, no exception, later numbers untouched.
  std::wistringstream in(L"5.x.3.4");
  EXPECT_NO_THROW(v.readFrom(in));
  EXPECT_TRUE(in.fail() && !in.bad());
  EXPECT_EQ(L"|5.0.7.6|", fields(v));

  // A stream keeps what follows the postfix.
  std::wistringstream more(L"V1.2.3.4-a next");
  std::wstring rest;
  EXPECT_EQ(&more, &v.readFrom(more));
  more >> rest;
  EXPECT_EQ(L"V|1.2.3.4|-a next", fields(v) + L" " + rest);
}

struct FailingBuffer : std::wstreambuf {
  int_type underflow() override { throw std::runtime_error("device gone"); }
};

TEST(VersionNumberTest, ABadStreamThrowsTheParseError) {
  FailingBuffer buffer;
  std::wistream failing(&buffer), unattached(nullptr);
  for (std::wistream* in : {&failing, &unattached}) {
    VersionNumber v;
    try {
      v.readFrom(*in);
      ADD_FAILURE() << "no exception";
    } catch (const zq::RuntimeError& e) {
      EXPECT_STREQ("VersionNumber::readFrom(std::istream & i):          Error parsing VersionNumber.", e.what());
    }
  }
}

TEST(VersionNumberTest, WritesInTheStreamsFormat) {
  VersionNumber v(L"Main-V", 1, 2, 30, 4, L"-beta");
  EXPECT_EQ(L"Main-V1.2.30.4-beta", v.toString());
  std::wostringstream out;
  out << std::hex;
  EXPECT_EQ(&out, &v.writeAt(out));
  EXPECT_EQ(L"Main-V1.2.1e.4-beta", out.str());
  VersionNumber& self = v;
  EXPECT_EQ(L"Main-V1.2.30.4-beta", (v = self).toString()) << "self-assignment keeps every field";
}

TEST(VersionNumberTest, ShortVersionForEveryStage) {
  const struct {
    unsigned int stage, build;
    const wchar_t* text;
  } cases[] = {
      {0, 1, L"4.2a1"}, {1, 7, L"4.2b7"},   {2, 3, L"4.2rc3"},  {3, 0, L"4.2"},
      {3, 1, L"4.2.1"}, {4, 0, L"4.2.1a0"}, {5, 2, L"4.2.1b2"}, {6, 3, L"4.2.1rc3"},
      {7, 0, L"4.2.1"}, {7, 5, L"4.2.1.5"}, {11, 0, L"4.2.2"},  {0, 0, L"4.2a0"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(c.text, VersionNumber(L"V", 4, 2, c.stage, c.build, L"-x").toShortVersion()) << c.stage << "." << c.build;
}

TEST(VersionNumberTest, ComparesTheNumbersOnly) {
  EXPECT_TRUE(VersionNumber(L"V1.2.3.4") == VersionNumber(L"Main-V1.2.3.4-beta"));
  EXPECT_TRUE(VersionNumber(2, 0, 0, 0) > VersionNumber(1, 9, 9, 9));
  // Ascending; the last number is compared as unsigned.
  const VersionNumber ordered[] = {{0, 0, 0, 0}, {0, 0, 0, 1},           {0, 0, 1, 0},          {0, 1, 0, 0},
                                   {1, 0, 0, 0}, {1, 0, 0, 0x80000000u}, {1, 0, 0, 0xFFFFFFFFu}};
  for (std::size_t i = 0; i < 7; ++i) {
    for (std::size_t j = 0; j < 7; ++j) {
      const VersionNumber &a = ordered[i], &b = ordered[j];
      EXPECT_EQ((std::vector<bool>{i == j, i != j, (i < j), i <= j, (i > j), i >= j}),
                (std::vector<bool>{a == b, a != b, (a < b), a <= b, (a > b), a >= b}))
          << i << " vs " << j;
    }
  }
}

// Overriding == and <= changes all six comparisons.
struct MajorOnly : VersionNumber {
  using VersionNumber::VersionNumber;
  bool operator==(const VersionNumber& o) const override { return getNumber(0) == o.getNumber(0); }
  bool operator<=(const VersionNumber& o) const override { return getNumber(0) <= o.getNumber(0); }
};

TEST(VersionNumberTest, TheOtherComparisonsFollowTheVirtualOnes) {
  const MajorOnly a(1, 2, 0, 0), b(1, 9, 0, 0), c(2, 0, 0, 0);
  const VersionNumber& ra = a;
  EXPECT_TRUE(ra == b && !(ra != b) && !(ra < b) && ra >= b && !(ra > b));
  EXPECT_TRUE(c > b && ra < c);
}

}  // namespace
