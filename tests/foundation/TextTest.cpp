#include <zq/foundation/Text.h>

#include <gtest/gtest.h>

#include <climits>
#include <iomanip>
#include <sstream>

namespace zq {
namespace {

TEST(TextTest, ConversionsKeepLengthAndEmbeddedNulls) {
  EXPECT_TRUE(convert(std::wstring()).empty());
  EXPECT_TRUE(wconvert(std::string()).empty());

  const std::wstring wide(L"a\0b", 3);
  const std::string narrow = convert(wide);
  ASSERT_EQ(3u, narrow.size());
  EXPECT_EQ('a', narrow[0]);
  EXPECT_EQ('\0', narrow[1]);
  EXPECT_EQ('b', narrow[2]);
  EXPECT_EQ(wide, wconvert(narrow));

  // By pointer, the terminator ends the text.
  EXPECT_EQ("a", convert(wide.c_str()));
  EXPECT_EQ(L"a", wconvert(narrow.c_str()));

  EXPECT_EQ('x', convert(L'x'));
  EXPECT_EQ(L'x', wconvert('x'));
  EXPECT_EQ(wconvert(std::string("mixed Text 123")), tconvert(std::string("mixed Text 123")));
  EXPECT_EQ(wconvert("literal"), tconvert("literal"));
}

TEST(TextTest, UnrepresentableCharactersBecomeOneQuestionMarkEach) {
  const std::wstring wide = L"gr\u00FC\u00DF \u4E16\u754C \U0001F600!";
  const std::string narrow = convert(wide);
  EXPECT_EQ(wide.size(), narrow.size());
  EXPECT_EQ("gr?? ?? ?!", narrow);
  EXPECT_EQ('?', convert(L'\u20AC'));
}

TEST(TextTest, IdentityOverloadsReturnTheSameObject) {
  std::string s = "abc";
  const std::string& cs = s;
  std::wstring w = L"abc";
  const std::wstring& cw = w;
  EXPECT_EQ(&s, &convert(s));
  EXPECT_EQ(&cs, &convert(cs));
  EXPECT_EQ(&w, &wconvert(w));
  EXPECT_EQ(&cw, &tconvert(cw));
  char c = 'c';
  wchar_t wc = L'c';
  EXPECT_EQ(&c, &convert(c));
  EXPECT_EQ(&wc, &tconvert(wc));

  EXPECT_EQ(&emptyString(), &emptyString());
  EXPECT_TRUE(emptyString().empty());
}

TEST(TextTest, AbsoluteValueInTwosComplement) {
  EXPECT_EQ(5LL, math::abs(-5LL));
  EXPECT_EQ(5LL, math::abs(5LL));
  EXPECT_EQ(0LL, math::abs(0LL));
  EXPECT_EQ(LLONG_MAX, math::abs(-LLONG_MAX));
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
  std::wstring w1, w2, w3;
  words >> w1 >> w2;
  EXPECT_EQ(L"first", w1);
  EXPECT_EQ(L"second", w2);
  w3 = L"stale";
  words >> w3;
  EXPECT_TRUE(words.fail());
  EXPECT_EQ(L"", w3);

  std::wistringstream wideWords(L"  one two");
  std::string n1, n2;
  wideWords >> n1 >> n2;
  EXPECT_EQ("one", n1);
  EXPECT_EQ("two", n2);
}

TEST(TextTest, CopyingReadyWideInputCopiesEverythingBufferedInBlocks) {
  const std::wstring text(700, L'x');
  std::wistringstream in(text + L"END");
  std::wostringstream out;
  out << in;
  EXPECT_EQ(text + L"END", out.str());

  std::wistringstream empty;
  std::wostringstream untouched(L"kept");
  untouched.seekp(0, std::ios_base::end);
  untouched << empty;
  EXPECT_EQ(L"kept", untouched.str());
}

}  // namespace
}  // namespace zq
