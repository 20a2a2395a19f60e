#include <zq/signals/Argument.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

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
    zq::ArgumentVector v(new Counted(&deletions), nullptr, new Counted(&deletions));
    EXPECT_EQ(nullptr, v[8]);
    EXPECT_EQ("Counted c", printed(v)) << "printing stops at the first gap";
  }
  EXPECT_EQ(2, deletions) << "deletion does not stop at the gap";

  auto args = zq::makeArguments(7, "seven", std::vector<std::string>{"a", "b"});
  std::ostringstream expected;
  expected << "ArgT int@";
  print_address(expected, (*args)[0]->m_data) << ",std::string 'seven',std::string[] ['a','b']";
  EXPECT_EQ(expected.str(), printed(*args));
}

// Arguments of every size and alignment, made on one thread and deleted on another, as the
// vectors of queued emissions are.
TEST(ArgumentTest, ArgumentsOfAnySizeAndAlignmentCrossThreads) {
  struct alignas(64) Wide {
    int value;
  };
  struct Large {
    char bytes[4000];
  };
  std::vector<std::unique_ptr<zq::ArgumentVector>> made;
  for (int i = 0; i < 100; ++i) {
    auto* wide = new zq::GenericArgument<Wide>(Wide{i});
    EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(wide->m_data) % 64);
    made.push_back(std::make_unique<zq::ArgumentVector>(new zq::GenericArgument<int>(i), wide,
                                                        new zq::GenericArgument<Large>(), new StringArgument("text")));
  }
  std::thread([&made] {
    for (std::size_t i = 0; i < made.size(); ++i)
      EXPECT_EQ(static_cast<int>(i), *zq::argument_cast<int>((*made[i])[0]));
    made.clear();
  }).join();
}

TEST(ArgumentTest, StringsShortenOnlyAbovePrecision32AndEveryWidthBecomesUtf8) {
  const std::string s = "std::string '";
  EXPECT_EQ(s + std::string(33, 'x') + "'", printed(StringArgument(std::string(33, 'x')), 33));
  EXPECT_EQ(s + std::string(33, 'x') + "...", printed(StringArgument(std::string(34, 'x')), 33));
  EXPECT_EQ(s + std::string(100, 'y') + "'", printed(StringArgument(std::string(100, 'y'))))
      << "the default precision never shortens";

  EXPECT_EQ("a\xC3\xA9\xE2\x82\xAC", StringArgument(L"a\u00e9\u20ac").m_value);
  EXPECT_EQ("\xF0\x9F\x98\x80", StringArgument(L"\U0001F600").m_value) << "wide text is 32-bit here";
  const unsigned short pair[] = {0xD83D, 0xDE00}, ascii[] = {'h', 'i'};
  EXPECT_EQ("\xED\xA0\xBD\xED\xB8\x80", StringArgument(zq::basic_stringref<unsigned short>(pair, 2)).m_value)
      << "each 16-bit unit alone";
  StringArrayArgument array(3);
  array.set(0, "x");
  array.set(1, L"\u00e9");
  array.set(2, zq::basic_stringref<unsigned short>(ascii, 1));
  EXPECT_EQ("std::string[] ['x','\xC3\xA9','h']", printed(array));
  EXPECT_EQ("std::string[] []", printed(StringArrayArgument(0)));
}

// A copy owns and reads its own value, whatever becomes of its source. A vector cannot be
// copied: its arguments have one owner.
TEST(ArgumentTest, CopiesStandOnTheirOwn) {
  static_assert(
      !std::is_copy_constructible<zq::ArgumentVector>::value && !std::is_copy_assignable<zq::ArgumentVector>::value,
      "a copied vector would own its arguments twice");
  auto text = std::make_unique<StringArgument>("first");
  StringArgument copied(*text), assigned("x");
  assigned = *text;
  auto array = std::make_unique<StringArrayArgument>(std::vector<std::string>{"a", "b"});
  StringArrayArgument arrayCopied(*array), arrayAssigned(1);
  arrayAssigned = *array;
  const StringArrayArgument& itself = arrayAssigned;
  arrayAssigned = itself;
  text.reset();
  array.reset();

  EXPECT_EQ("first", *zq::argument_cast<std::string>(&copied));
  EXPECT_EQ("first", *zq::argument_cast<std::string>(&assigned));
  arrayCopied.set(0, "z");
  EXPECT_EQ("std::string[] ['z','b'] std::string[] ['a','b']", printed(arrayCopied) + " " + printed(arrayAssigned));
  EXPECT_EQ(2u, arrayAssigned.m_count);
}

TEST(ArgumentTest, MatchingAndSafeReading) {
  const zq::GenericArgument<int> n(5);
  const zq::GenericArgument<double> d(2.5);
  const StringArgument s("text");
  EXPECT_TRUE(d.isa(zq::TypePair("ArgT", typeid(int).name()))) << "ArgT matches every generic argument";
  EXPECT_FALSE(s.isa(zq::TypePair("ArgT", typeid(int).name())));
  EXPECT_TRUE(s.isa(zq::TypePair("other", typeid(std::string).name())));
  EXPECT_FALSE(s.isa(zq::TypePair("std::String", "x"))) << "the comparison is exact";

  EXPECT_EQ(5, *zq::argument_cast<int>(&n));
  EXPECT_EQ("text", *zq::argument_cast<std::string>(&s));
  EXPECT_EQ(nullptr, zq::argument_cast<double>(&n));
  EXPECT_EQ(nullptr, zq::argument_cast<int>(nullptr));
  EXPECT_EQ(nullptr, zq::argument_cast<std::string>(&d));
}

TEST(ArgumentTest, PrintingOfTypesAndAddresses) {
  const std::pair<const char*, const char*> cases[] = {
      {"class Foo", "Foo"},       {"struct Foo", "Foo"}, {"class struct Foo", "Foo"}, {"classy", "classy"}, {"", ""},
      {typeid(int).name(), "int"}};
  for (const auto& c : cases) {
    std::ostringstream os;
    print_type(os, c.first);
    EXPECT_EQ(c.second, os.str()) << c.first;
  }
  std::ostringstream os;
  print_type(os, typeid(zq::ArgumentVector)) << " ";
  print_address(os, nullptr) << " ";
  os << std::uppercase;
  print_address(os, reinterpret_cast<const void*>(0xabc0)) << " " << 255;
  EXPECT_EQ("zq::ArgumentVector null 0xABC0 255", os.str()) << "upper case kept, decimal afterwards";
}

}  // namespace
