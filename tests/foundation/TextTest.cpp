#include <zq/foundation/Text.h>

#include <gtest/gtest.h>

#include <climits>
#include <iomanip>
#include <sstream>

namespace zq {
namespace {

TEST(TextTest, ConversionsKeepLengthAndEmbeddedNulls) {
  EXPECT_TRUE(convert(std::wstring()).empty() && wconvert(std::string()).empty());
  const std::wstring wide(L"a\0b", 3);
  const std::string narrow = convert(wide);
  EXPECT_EQ(std::string("a\0b", 3), narrow);
  EXPECT_EQ(wide, wconvert(narrow));
  EXPECT_EQ("a", convert(wide.c_str())) << "by pointer, the terminator ends the text";
  EXPECT_EQ(L"a", wconvert(narrow.c_str()));
  EXPECT_TRUE(convert(L'x') == 'x' && wconvert('x') == L'x');
  EXPECT_EQ(L"Text 123", tconvert(std::string("Text 123")));
  EXPECT_EQ(L"literal", tconvert("literal"));
}

TEST(TextTest, UnrepresentableCharactersBecomeOneQuestionMarkEach) {
  EXPECT_EQ("gr?? ?? ?!", convert(std::wstring(L"gr\u00FC\u00DF \u4E16\u754C \U0001F600!")));
  EXPECT_EQ('?', convert(L'\u20AC'));
}

TEST(TextTest, IdentityOverloadsReturnTheSameObject) {
  std::string s = "abc";
  std::wstring w = L"abc";
  char c = 'c';
  wchar_t wc = L'c';
  EXPECT_TRUE(&s == &convert(s) && &s == &convert(static_cast<const std::string&>(s)));
  EXPECT_TRUE(&w == &wconvert(w) && &w == &tconvert(static_cast<const std::wstring&>(w)));
  EXPECT_TRUE(&c == &convert(c) && &wc == &tconvert(wc));
  EXPECT_TRUE(&emptyString() == &emptyString() && emptyString().empty());
}

TEST(TextTest, AbsoluteValueInTwosComplement) {
  EXPECT_TRUE(math::abs(-5LL) == 5 && math::abs(5LL) == 5 && math::abs(-LLONG_MAX) == LLONG_MAX);
  EXPECT_EQ(LLONG_MIN, math::abs(LLONG_MIN));
}

TEST(TextTest, MixedWidthStreamOperatorsHonourFormatting) {
  std::wostringstream wide;
  wide << std::setw(6) << std::setfill(L'.') << std::string("ab") << L'|' << std::left << std::setw(4)
       << std::string("c") << L'|';
  EXPECT_EQ(L"....ab|c...|", wide.str());

  std::ostringstream narrow;
  narrow << std::setw(5) << std::wstring(L"xy") << std::wstring(L"\u00FC");
  EXPECT_EQ("   xy?", narrow.str());

  std::istringstream words("first second");
  std::wstring w1, w2, w3 = L"stale";
  words >> w1 >> w2 >> w3;
  EXPECT_TRUE(w1 == L"first" && w2 == L"second" && w3.empty() && words.fail());

  std::wistringstream wideWords(L"  one two");
  std::string n1, n2;
  wideWords >> n1 >> n2;
  EXPECT_TRUE(n1 == "one" && n2 == "two");
}

TEST(TextTest, CopyingReadyWideInputCopiesEverythingBufferedInBlocks) {
  const std::wstring text(700, L'x');
  std::wistringstream in(text + L"END"), empty;
  std::wostringstream out, untouched(L"kept", std::ios_base::ate);
  out << in;
  untouched << empty;
  EXPECT_EQ(text + L"END", out.str());
  EXPECT_EQ(L"kept", untouched.str());
}

}  // namespace
}  // namespace zq
