#include <zq/foundation/Exception.h>

#include <gtest/gtest.h>

#include <sstream>

namespace zq {
namespace {

// Appends to the message each time its generateWhat runs, and counts live instances.
class Counting : public RuntimeError {
 public:
  static int s_generated;
  static int s_alive;

  explicit Counting(const std::string& what = k_stringNotSet, const Exception* cause = nullptr)
      : RuntimeError(what, cause) {
    ++s_alive;
  }
  Counting(const Counting& other) : RuntimeError(other) { ++s_alive; }
  Counting& operator=(const Counting& other) = default;
  ~Counting() override { --s_alive; }

  using Exception::setCause;
  using Exception::setWhatString;
  using Exception::whatString;

 protected:
  void generateWhat(std::string& o_what_str) const override {
    ++s_generated;
    Exception::generateWhat(o_what_str);
    o_what_str += " [generated]";
  }
  Exception* clone() const override { return new Counting(*this); }
};
int Counting::s_generated = 0;
int Counting::s_alive = 0;

class ExceptionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Counting::s_generated = 0;
    Counting::s_alive = 0;
  }
};

TEST_F(ExceptionTest, DefaultTextIsTheReminder) {
  const Exception e;
  const std::string expected =
      "No error message set! Please overwrite void Exception::generateWhat( zqstring & o_what_str )!";
  ASSERT_EQ(93u, expected.size());
  EXPECT_EQ(expected, e.what());
  EXPECT_EQ(&e.whatStr(), &e.whatStr());
  EXPECT_EQ(expected, e.whatStr());
  EXPECT_STREQ("x", RuntimeError("x").what());
  EXPECT_EQ(nullptr, LogicError("y").cause());
  EXPECT_EQ(0xFFFFFFFFFFFFFFFFull, Exception::k_lineNotSet);
  EXPECT_TRUE(Exception::k_stringNotSet.empty());
}

TEST_F(ExceptionTest, TextIsGeneratedOnceAndCopiesDoNotGenerateAgain) {
  Counting e("base");
  EXPECT_EQ(0, Counting::s_generated) << "nothing is generated at construction";
  EXPECT_STREQ("base [generated]", e.what());
  EXPECT_STREQ("base [generated]", e.what());
  EXPECT_EQ("base [generated]", e.whatStr());
  EXPECT_EQ(1, Counting::s_generated);

  const Counting copy(e);
  EXPECT_EQ("base [generated]", copy.whatStr());
  EXPECT_EQ(1, Counting::s_generated);

  // A copy taken before the first what() generates on its own, once.
  const Counting fresh("fresh");
  const Counting early(fresh);
  EXPECT_EQ("fresh [generated]", early.whatStr());
  EXPECT_EQ(2, Counting::s_generated);

  // setWhatString leaves the flag alone: the text changes, nothing is generated again.
  e.setWhatString("replaced");
  EXPECT_STREQ("replaced", e.what());
  EXPECT_EQ(2, Counting::s_generated);
}

TEST_F(ExceptionTest, ChainPrintsWithItsRepetitions) {
  const RuntimeError d("D");
  const RuntimeError c("C", &d);
  const RuntimeError b("B", &c);
  const RuntimeError a("A", &b);

  std::ostringstream narrow;
  EXPECT_EQ(&narrow, &a.writeTo(narrow));
  EXPECT_EQ(
      "A\n caused by: B\n caused by: C\n caused by: D\n caused by: D\n caused by: C\n caused by: D\n caused by: D",
      narrow.str());

  std::wostringstream wide;
  a.writeTo(wide);
  EXPECT_EQ(L"A\n caused by: B\n caused by: C\n caused by: D\n caused by: D\n caused by: C\n caused by: D"
            L"\n caused by: D",
            wide.str());

  std::ostringstream causes;
  c.printCauses(causes);
  EXPECT_EQ("\n caused by: D", causes.str());
  std::wostringstream depth3;
  b.printCauses(depth3);
  EXPECT_EQ(L"\n caused by: C\n caused by: D\n caused by: D", depth3.str());

  std::ostringstream single;
  d.writeTo(single);
  EXPECT_EQ("D", single.str()) << "no cause, no newline";

  std::ostringstream none;
  Exception::printStackTrace(none, a);
  EXPECT_TRUE(none.str().empty());
}

TEST_F(ExceptionTest, CausesAreClonedWithTheirDynamicType) {
  try {
    try {
      throw LogicError("inner");
    } catch (const Exception& inner) {
      throw RuntimeError("outer", &inner);
    }
  } catch (const Exception& caught) {
    const Exception copy(caught);
    ASSERT_NE(nullptr, copy.cause());
    EXPECT_NE(caught.cause(), copy.cause()) << "a cause is never shared";
    EXPECT_NE(nullptr, dynamic_cast<const LogicError*>(copy.cause()));
    EXPECT_NE(nullptr, dynamic_cast<const RuntimeError*>(&caught));
    EXPECT_STREQ("inner", copy.cause()->what());
  }
}

TEST_F(ExceptionTest, SetCauseReplacesAndDeletes) {
  Counting e("e");
  const Counting first("first");
  e.setCause(first);
  EXPECT_EQ(3, Counting::s_alive);
  const Exception* held = e.cause();
  e.setCause(held);  // the same pointer: nothing happens
  EXPECT_EQ(held, e.cause());
  EXPECT_EQ(3, Counting::s_alive);
  e.setCause(nullptr);
  EXPECT_EQ(nullptr, e.cause());
  EXPECT_EQ(2, Counting::s_alive);
}

TEST_F(ExceptionTest, AssignmentKeepsTheOldChainAlive) {
  const Counting oldCause("old cause");
  const Counting newCause("new cause");
  Counting a("a", &oldCause);
  const Counting b("b", &newCause);
  const Exception* before = a.cause();
  const int alive = Counting::s_alive;

  a = b;
  EXPECT_EQ("b [generated]", a.whatStr());
  ASSERT_NE(nullptr, a.cause());
  EXPECT_NE(b.cause(), a.cause());
  EXPECT_STREQ("new cause [generated]", a.cause()->what());
  EXPECT_STREQ("old cause [generated]", before->what()) << "the old cause must still live";
  EXPECT_EQ(alive + 1, Counting::s_alive);

  Counting& self = a;
  a = self;  // self-assignment changes nothing
  EXPECT_EQ("b [generated]", a.whatStr());
  delete before;  // the test owns what the assignment left behind
}

}  // namespace
}  // namespace zq
