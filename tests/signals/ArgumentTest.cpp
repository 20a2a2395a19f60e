#include <zq/signals/Argument.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

using zq::ArgumentVector;
using zq::GenericArgument;
using zq::StringArgument;
using zq::StringArrayArgument;

// Counts its deletions, to see who owns it.
struct Counted : zq::Argument {
  explicit Counted(int* deletions) : Argument(zq::TypePair("Counted", "counted"), nullptr, 0), m_deletions(deletions) {}
  ~Counted() override { ++*m_deletions; }
  std::ostream& print(std::ostream& os) const override { return os << "c"; }
  int* m_deletions;
};

template <class T>
std::string printed(const T& value, std::streamsize precision = 6) {
  std::ostringstream os;
  os.precision(precision);
  os << value;
  return os.str();
}

TEST(ArgumentTest, VectorSlotsOwnershipAndPrinting) {
  int deletions = 0;
  {
    ArgumentVector v(new Counted(&deletions), nullptr, new Counted(&deletions));
    EXPECT_EQ(nullptr, v[8]);
    EXPECT_EQ(nullptr, v[7]);
    EXPECT_EQ("Counted c", printed(v)) << "printing stops at the first gap";
  }
  EXPECT_EQ(2, deletions) << "deletion does not stop at the gap";

  auto args = zq::makeArguments(7, "seven", std::vector<std::string>{"a", "b"});
  std::ostringstream expected;
  expected << "ArgT int@";
  print_address(expected, (*args)[0]->m_data) << ",std::string 'seven',std::string[] ['a','b']";
  EXPECT_EQ(expected.str(), printed(*args));
}

TEST(ArgumentTest, StringsShortenOnlyAbovePrecision32) {
  const StringArgument exact(std::string(33, 'x'));
  EXPECT_EQ("'" + std::string(33, 'x') + "'", printed(static_cast<const zq::Argument&>(exact), 33).substr(12));
  const StringArgument longer(std::string(34, 'x'));
  std::ostringstream os;
  os.precision(33);
  longer.print(os);
  EXPECT_EQ("'" + std::string(33, 'x') + "...", os.str());
  std::ostringstream wide;
  StringArgument(std::string(100, 'y')).print(wide);
  EXPECT_EQ(102u, wide.str().size()) << "the default precision never shortens";

  StringArrayArgument none(0);
  std::ostringstream empty;
  none.print(empty);
  EXPECT_EQ("[]", empty.str());
}

TEST(ArgumentTest, TextOfEveryWidthBecomesUtf8) {
  EXPECT_EQ("abc", StringArgument("abc").m_value);
  EXPECT_EQ("a\xC3\xA9\xE2\x82\xAC", StringArgument(L"a\u00e9\u20ac").m_value);
  EXPECT_EQ("\xF0\x9F\x98\x80", StringArgument(L"\U0001F600").m_value) << "wide text is 32-bit here";
  const unsigned short pair[] = {0xD83D, 0xDE00};
  EXPECT_EQ("\xED\xA0\xBD\xED\xB8\x80", StringArgument(zq::basic_stringref<unsigned short>(pair, 2)).m_value)
      << "each 16-bit unit alone: a surrogate pair gives six bytes";
  const unsigned short ascii[] = {'h', 'i'};
  EXPECT_EQ("hi", StringArgument(zq::basic_stringref<unsigned short>(ascii, 2)).m_value);

  StringArrayArgument array(3);
  array.set(0, "x");
  array.set(1, L"\u00e9");
  array.set(2, zq::basic_stringref<unsigned short>(ascii, 1));
  EXPECT_EQ("['x','\xC3\xA9','h']", printed(static_cast<const zq::Argument&>(array)).substr(14));
}

TEST(ArgumentTest, CopiesKeepTheirSourcesData) {
  StringArgument source("source");
  StringArgument copy(source);
  EXPECT_EQ(source.m_data, copy.m_data) << "a copy still reads its source through m_data";
  GenericArgument<int> n(5);
  GenericArgument<int> m(n);
  EXPECT_EQ(&m.m_value, m.m_data);
}

TEST(ArgumentTest, MatchingAndSafeReading) {
  const GenericArgument<int> n(5);
  const GenericArgument<double> d(2.5);
  const StringArgument s("text");
  EXPECT_TRUE(d.isa(zq::TypePair("ArgT", typeid(int).name()))) << "ArgT matches every generic argument";
  EXPECT_FALSE(s.isa(zq::TypePair("ArgT", typeid(int).name())));
  EXPECT_TRUE(s.isa(zq::TypePair("other", typeid(std::string).name())));
  EXPECT_FALSE(s.isa(zq::TypePair("std::String", "x"))) << "the comparison is exact";

  ASSERT_NE(nullptr, zq::argument_cast<int>(&n));
  EXPECT_EQ(5, *zq::argument_cast<int>(&n));
  EXPECT_EQ(nullptr, zq::argument_cast<double>(&n));
  EXPECT_EQ(nullptr, zq::argument_cast<int>(nullptr));
  EXPECT_EQ("text", *zq::argument_cast<std::string>(&s));
  EXPECT_EQ(nullptr, zq::argument_cast<std::string>(&d));
}

TEST(ArgumentTest, PrintingOfTypesAndAddresses) {
  const auto typeText = [](const char* name) {
    std::ostringstream os;
    print_type(os, name);
    return os.str();
  };
  EXPECT_EQ("Foo", typeText("class Foo"));
  EXPECT_EQ("Foo", typeText("struct Foo"));
  EXPECT_EQ("Foo", typeText("class struct Foo"));
  EXPECT_EQ("classy", typeText("classy"));
  EXPECT_EQ("", typeText(""));
  EXPECT_EQ("std::string", typeText("std::string"));
  EXPECT_EQ("int", typeText(typeid(int).name())) << "run-time names are demangled";
  std::ostringstream info;
  print_type(info, typeid(ArgumentVector));
  EXPECT_EQ("zq::ArgumentVector", info.str());

  std::ostringstream os;
  print_address(os, nullptr) << " ";
  os << std::uppercase;
  print_address(os, reinterpret_cast<const void*>(0xabc0)) << " " << 255;
  EXPECT_EQ("null 0xABC0 255", os.str()) << "upper case kept, decimal afterwards";
}

}  // namespace
