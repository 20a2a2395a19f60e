#include <zq/foundation/Assert.h>

#include <zq/foundation/Log.h>

#include "tests/support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

namespace zq {
namespace {

using ::testing::ElementsAre;

TEST(AssertTest, LogReportersWriteOneCriticalLineThroughTheFilter) {
  {
    test::LogCapture log(Log::Fatal);
    assert_log_error(L"x > 0", L"void f(int)");
    EXPECT_TRUE(log.lines().empty()) << "a threshold of Fatal filters Critical reports";
  }
  {
    test::LogCapture log(Log::Critical);
    assert_log_error(L"x > 0", L"void f(int)");
    assert_log_error_x(L"void g(void)", L"Bad state", L"( 0 == m_handle )", L"void g(void)");
    terminal(L"the end", 1);
    EXPECT_EQ("CRITICAL [zq::assert_log_error] (x > 0) void f(int)", log.lines().at(0).substr(24));
    EXPECT_THAT(log.bodies(), ElementsAre(testing::_,
                                          "[zq::assert_log_error_x] void g(void): Bad state (( 0 == m_handle )) "
                                          "void g(void)",
                                          "[zq::terminal] the end"));
  }
  // With no stream at all nothing is written and nothing fails.
  assert_log_error(L"c", L"p");
  terminal(L"t", 3);
}

TEST(AssertTest, DebuggerReportersBypassTheLog) {
  test::DebuggerCapture debugger;
  {
    test::LogCapture log(Log::Fatal);  // the threshold does not apply to the debugger pair
    assert_debugger_error(L"p != nullptr", L"file.cpp", 42, L"main");
    assert_debugger_error_x(L"void f(void)", L"Bad state", L"( a )", L"other.cpp", 7, L"f");
    EXPECT_TRUE(log.lines().empty());
  }
  EXPECT_THAT(debugger.messages(), ElementsAre(L"ZQ_ASSERT:(p != nullptr)file.cpp:42:main\n",
                                               L"void f(void):Bad state\n", L"ZQ_ASSERT_X:(( a ))other.cpp:7:f\n"));
}

#ifndef NDEBUG
TEST(AssertTest, AssertMacroReportsAndStopsOnlyWhenBreakingIsEnabled) {
  EXPECT_FALSE(isDebuggerPresent());
  ASSERT_TRUE(isDebugbreakEnabled()) << "the flag starts true";
  test::DebuggerCapture debugger;
  test::LogCapture log;
  getDebugbreakEnabled() = false;
  int evaluated = 0;
  ZQ_ASSERT(++evaluated == 2);
  ZQ_ASSERT_X(evaluated == 1, "void g(void)", "holds");
  getDebugbreakEnabled() = true;
  EXPECT_EQ(1, evaluated);
  EXPECT_THAT(log.lines(), ElementsAre(testing::HasSubstr("[zq::assert_log_error] (++evaluated == 2) ")));
  EXPECT_EQ(0u, debugger.messages().at(0).find(L"ZQ_ASSERT:(++evaluated == 2)"));

  EXPECT_EXIT(ZQ_ASSERT(evaluated == 0), ::testing::KilledBySignal(SIGTRAP), "");
}
#endif

}  // namespace
}  // namespace zq
