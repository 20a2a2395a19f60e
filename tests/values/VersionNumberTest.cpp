#include <zq/values/VersionNumber.h>

#include <zq/foundation/Exception.h>

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <streambuf>
#include <string>

namespace {

using zq::VersionNumber;

struct Parsed {
  const wchar_t* text;
  const wchar_t* prefix;
  unsigned int numbers[4];
  const wchar_t* postfix;
};

void expectFields(const VersionNumber& v, const Parsed& p) {
  const std::string label(p.text, p.text + std::wcslen(p.text));
  EXPECT_EQ(std::wstring(p.prefix), v.getPrefix()) << label;
  for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(p.numbers[i], v.getNumber(i)) << label << " number " << i;
  EXPECT_EQ(std::wstring(p.postfix), v.getPostfix()) << label;
}

TEST(VersionNumberTest, ParsesPrefixNumbersAndPostfix) {
  const Parsed cases[] = {
      {L"1.2.3.4", L"", {1, 2, 3, 4}, L""},
      {L"V1.2.3.4", L"V", {1, 2, 3, 4}, L""},
      {L"Main-V1.2.3.4", L"Main-V", {1, 2, 3, 4}, L""},
      // A leading "m" runs to the "V": digits join the prefix and the blank is skipped.
      {L"main 4.2V1.0", L"main4.2V", {1, 0, 0, 0}, L""},
      {L"Firmware 7.8.9.10", L"Firmware", {7, 8, 9, 10}, L""},
      {L"1.2.3.4-beta", L"", {1, 2, 3, 4}, L"-beta"},
      {L"1.2.3.4 rc 1", L"", {1, 2, 3, 4}, L"rc"},  // one word only
      {L"1-2_3 4", L"", {1, 2, 3, 4}, L""},         // delimiters are not checked
      {L"1.2", L"", {1, 2, 0, 0}, L""},
      {L"", L"", {0, 0, 0, 0}, L""},
      {L"4294967295.0.0.1", L"", {4294967295u, 0, 0, 1}, L""},
  };
  for (const Parsed& p : cases) {
    expectFields(VersionNumber(std::wstring(p.text)), p);
    VersionNumber v;
    v.fromString(p.text);
    expectFields(v, p);
  }
}

TEST(VersionNumberTest, ShortOrMalformedTextKeepsWhatItDoesNotReach) {
  VersionNumber v(L"Old", 9, 8, 7, 6, L"-x");
  v.fromString(L"1.2");
  expectFields(v, {L"1.2", L"", {1, 2, 7, 6}, L""});

  // "M" without a "V": everything is prefix and the numbers stay.
  v = VersionNumber(L"", 9, 8, 7, 6, L"");
  v.fromString(L"M1.2.3.4");
  expectFields(v, {L"M1.2.3.4", L"M1.2.3.4", {9, 8, 7, 6}, L""});

  // Letters where a number stands: fail bit only, no exception, later numbers untouched.
  v = VersionNumber(9, 8, 7, 6);
  std::wistringstream in(L"1.x.3.4");
  EXPECT_NO_THROW(v.readFrom(in));
  EXPECT_TRUE(in.fail());
  EXPECT_FALSE(in.bad());
  EXPECT_EQ(1u, v.getNumber(0));
  EXPECT_EQ(7u, v.getNumber(2));
  EXPECT_EQ(6u, v.getNumber(3));
}

TEST(VersionNumberTest, ReadsFromAStreamAndLeavesTheRest) {
  std::wistringstream in(L"V1.2.3.4-a next");
  VersionNumber v;
  EXPECT_EQ(&in, &v.readFrom(in));
  expectFields(v, {L"", L"V", {1, 2, 3, 4}, L"-a"});
  std::wstring rest;
  in >> rest;
  EXPECT_EQ(L"next", rest);
}

// A stream whose buffer fails on reading ends up bad.
struct FailingBuffer : std::wstreambuf {
  int_type underflow() override { throw std::runtime_error("device gone"); }
};

TEST(VersionNumberTest, ABadStreamThrowsTheParseError) {
  const std::string expected = "VersionNumber::readFrom(std::istream & i):          Error parsing VersionNumber.";
  FailingBuffer buffer;
  std::wistream failing(&buffer);
  std::wistream unattached(nullptr);
  for (std::wistream* in : {&failing, &unattached}) {
    VersionNumber v;
    try {
      v.readFrom(*in);
      ADD_FAILURE() << "no exception";
    } catch (const zq::RuntimeError& e) {
      EXPECT_EQ(expected, e.what());
    }
  }
}

TEST(VersionNumberTest, WritesInTheStreamsFormat) {
  const VersionNumber v(L"Main-V", 1, 2, 30, 4, L"-beta");
  EXPECT_EQ(L"Main-V1.2.30.4-beta", v.toString());
  EXPECT_EQ(L"1.2.3.4", VersionNumber(1, 2, 3, 4).toString());

  std::wostringstream out;
  out << std::hex;
  EXPECT_EQ(&out, &v.writeAt(out));
  EXPECT_EQ(L"Main-V1.2.1e.4-beta", out.str());

  // Printing and parsing agree for a one-word postfix.
  const VersionNumber back(v.toString());
  EXPECT_EQ(v.toString(), back.toString());
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
  for (const auto& c : cases) {
    EXPECT_EQ(std::wstring(c.text), VersionNumber(L"V", 4, 2, c.stage, c.build, L"-x").toShortVersion())
        << "stage " << c.stage << " build " << c.build;
  }
}

TEST(VersionNumberTest, ComparesTheNumbersOnly) {
  EXPECT_TRUE(VersionNumber(L"V1.2.3.4") == VersionNumber(L"Main-V1.2.3.4-beta"));
  EXPECT_TRUE(VersionNumber(2, 0, 0, 0) > VersionNumber(1, 9, 9, 9));

  // Each pair in ascending order; the last number is compared as unsigned.
  const VersionNumber ordered[] = {VersionNumber(0, 0, 0, 0),          VersionNumber(0, 0, 0, 1),
                                   VersionNumber(0, 0, 1, 0),          VersionNumber(0, 1, 0, 0),
                                   VersionNumber(1, 0, 0, 0),          VersionNumber(1, 0, 0, 0x80000000u),
                                   VersionNumber(1, 0, 0, 0xFFFFFFFFu)};
  const std::size_t n = sizeof(ordered) / sizeof(ordered[0]);
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < n; ++j) {
      const VersionNumber& a = ordered[i];
      const VersionNumber& b = ordered[j];
      EXPECT_EQ(i == j, a == b) << i << " == " << j;
      EXPECT_EQ(i != j, a != b) << i << " != " << j;
      EXPECT_EQ(i < j, a < b) << i << " < " << j;
      EXPECT_EQ(i <= j, a <= b) << i << " <= " << j;
      EXPECT_EQ(i > j, a > b) << i << " > " << j;
      EXPECT_EQ(i >= j, a >= b) << i << " >= " << j;
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
  const MajorOnly a(1, 2, 0, 0);
  const MajorOnly b(1, 9, 0, 0);
  const VersionNumber& ra = a;
  EXPECT_TRUE(ra == b);
  EXPECT_FALSE(ra != b);
  EXPECT_FALSE(ra < b);
  EXPECT_TRUE(ra >= b);
  EXPECT_FALSE(ra > b);
  EXPECT_TRUE(MajorOnly(2, 0, 0, 0) > b);
  EXPECT_TRUE(ra < MajorOnly(2, 0, 0, 0));
}

TEST(VersionNumberTest, CopyAndAssignmentTakeAllFields) {
  VersionNumber v(L"P", 1, 2, 3, 4, L"-q");
  VersionNumber copy(v);
  EXPECT_EQ(L"P1.2.3.4-q", copy.toString());
  VersionNumber assigned;
  assigned = v;
  EXPECT_EQ(L"P1.2.3.4-q", assigned.toString());
  VersionNumber& self = v;
  v = self;
  EXPECT_EQ(L"P1.2.3.4-q", v.toString());
  EXPECT_EQ(L'.', VersionNumber::kDelimeter);
}

}  // namespace
