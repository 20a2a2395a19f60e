#include <zq/foundation/Exception.h>

#include <zq/foundation/Text.h>

#include <gtest/gtest.h>

#include <sstream>

namespace zq {
namespace {

// Appends to the message each time its generateWhat runs, and counts live instances.
class Counting : public RuntimeError {
 public:
  static inline int s_generated = 0, s_alive = 0;

  explicit Counting(const std::string& what, const Exception* cause = nullptr) : RuntimeError(what, cause) {
    ++s_alive;
  }
  Counting(const Counting& other) : RuntimeError(other) { ++s_alive; }
  Counting& operator=(const Counting& other) = default;
  ~Counting() override { --s_alive; }

  using Exception::setCause;
  using Exception::setWhatString;

 protected:
  void generateWhat(std::string& o_what_str) const override {
    ++s_generated;
    Exception::generateWhat(o_what_str);
    o_what_str += " [generated]";
  }
  Exception* clone() const override { return new Counting(*this); }
};

class ExceptionTest : public ::testing::Test {
 protected:
  void SetUp() override { Counting::s_generated = Counting::s_alive = 0; }
};

TEST_F(ExceptionTest, DefaultTextIsTheReminder) {
  EXPECT_STREQ("No error message set! Please overwrite void Exception::generateWhat( zqstring & o_what_str )!",
               Exception().what());
}

TEST_F(ExceptionTest, TextIsGeneratedOnceAlsoForCopies) {
  Counting e("base");
  EXPECT_EQ(0, Counting::s_generated) << "nothing is generated at construction";
  e.what();
  EXPECT_EQ("base [generated]", e.whatStr());
  EXPECT_EQ("base [generated]", Counting(e).whatStr());
  EXPECT_EQ(1, Counting::s_generated) << "neither a second what() nor a copy generates again";

  const Counting fresh("fresh");
  EXPECT_EQ("fresh [generated]", Counting(fresh).whatStr()) << "a copy taken before the first what()";
  EXPECT_EQ(2, Counting::s_generated);

  e.setWhatString("replaced");  // leaves the flag alone: nothing is generated again
  EXPECT_STREQ("replaced", e.what());
  EXPECT_EQ(2, Counting::s_generated);
}

TEST_F(ExceptionTest, ChainPrintsWithItsRepetitions) {
  const RuntimeError d("D"), c("C", &d), b("B", &c), a("A", &b);
  const std::string causesOfB = "\n caused by: C\n caused by: D\n caused by: D";
  const std::string chain = "A\n caused by: B" + causesOfB + causesOfB;
  std::ostringstream narrow, causes, single, none;
  std::wostringstream wide;
  EXPECT_EQ(&narrow, &a.writeTo(narrow));
  a.writeTo(wide);
  b.printCauses(causes);
  d.writeTo(single);
  Exception::printStackTrace(none, a);
  EXPECT_EQ(chain, narrow.str());
  EXPECT_EQ(wconvert(chain), wide.str());
  EXPECT_EQ(causesOfB, causes.str());
  EXPECT_EQ("D", single.str()) << "no cause, no newline";
  EXPECT_TRUE(none.str().empty());
}

TEST_F(ExceptionTest, CausesAreClonedWithTheirDynamicType) {
  const LogicError inner("inner");
  const RuntimeError outer("outer", &inner);
  const Exception copy(outer);  // NOLINT(performance-unnecessary-copy-initialization): the copy is tested
  EXPECT_TRUE(outer.cause() != &inner && copy.cause() != outer.cause()) << "a cause is never shared";
  EXPECT_NE(nullptr, dynamic_cast<const LogicError*>(copy.cause()));
  EXPECT_STREQ("inner", copy.cause()->what());
}

TEST_F(ExceptionTest, AssignmentKeepsTheOldChainAliveAndSetCauseReplaces) {
  const Counting oldCause("old cause"), newCause("new cause");
  Counting a("a", &oldCause);
  const Counting b("b", &newCause);
  const Exception* before = a.cause();
  a.setCause(before);  // the same pointer: nothing happens
  EXPECT_EQ(before, a.cause());
  const int alive = Counting::s_alive;

  a = b;
  EXPECT_EQ("b [generated]", a.whatStr());
  EXPECT_TRUE(a.cause() != nullptr && a.cause() != b.cause());
  EXPECT_STREQ("new cause [generated]", a.cause()->what());
  EXPECT_STREQ("old cause [generated]", before->what()) << "the old cause must still live";
  a = static_cast<const Counting&>(a);  // self-assignment changes nothing
  EXPECT_EQ("b [generated]", a.whatStr());
  EXPECT_EQ(alive + 1, Counting::s_alive);

  a.setCause(oldCause);  // deletes the held cause, clones the new one
  EXPECT_EQ(alive + 1, Counting::s_alive);
  a.setCause(nullptr);
  EXPECT_EQ(nullptr, a.cause());
  EXPECT_EQ(alive, Counting::s_alive);
  delete before;  // the test owns what the assignment left behind
}

}  // namespace
}  // namespace zq
