#include <zq/foundation/Assert.h>

#include <zq/foundation/Log.h>

#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <csignal>

namespace zq {
namespace {

TEST(AssertTest, LogReportersWriteOneCriticalLineThroughTheFilter) {
  {
    test::LogCapture log(Log::Fatal);
    assert_log_error(L"x > 0", L"void f(int)");
    EXPECT_TRUE(log.lines().empty()) << "a threshold of Fatal filters Critical reports";
  }
  {
    test::LogCapture log(Log::Critical);
    assert_log_error(L"x > 0", L"void f(int)");
    assert_log_error_x(L"void __cdecl zq::Thread::start(void)", L"Thread already started", L"( 0 == m_handle )",
                       L"void __cdecl zq::Thread::start(void)");
    terminal(L"the end", 1);
    terminal(L"the end", 0);
    const auto lines = log.lines();
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ("CRITICAL [zq::assert_log_error] (x > 0) void f(int)", lines[0].substr(24));
    EXPECT_EQ(
        "[zq::assert_log_error_x] void __cdecl zq::Thread::start(void): Thread already started (( 0 == m_handle )) "
        "void __cdecl zq::Thread::start(void)",
        log.bodies()[1]);
    EXPECT_EQ("[zq::terminal] the end", log.bodies()[2]);
    EXPECT_EQ(log.bodies()[2], log.bodies()[3]);
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
  const auto messages = debugger.messages();
  ASSERT_EQ(3u, messages.size());
  EXPECT_EQ(L"ZQ_ASSERT:(p != nullptr)file.cpp:42:main\n", messages[0]);
  EXPECT_EQ(L"void f(void):Bad state\n", messages[1]);
  EXPECT_EQ(L"ZQ_ASSERT_X:(( a ))other.cpp:7:f\n", messages[2]);
}

TEST(AssertTest, FlagsAndDebuggerPresence) {
  EXPECT_FALSE(isDebuggerPresent());
  EXPECT_TRUE(isDebugbreakEnabled()) << "the flag starts true";
  getDebugbreakEnabled() = false;
  EXPECT_FALSE(isDebugbreakEnabled());
  getDebugbreakEnabled() = true;
  EXPECT_TRUE(isDebugbreakEnabled());
}

#ifndef NDEBUG
TEST(AssertTest, AssertMacroReportsAndStopsOnlyWhenBreakingIsEnabled) {
  test::DebuggerCapture debugger;
  test::LogCapture log;
  getDebugbreakEnabled() = false;
  int evaluated = 0;
  ZQ_ASSERT(++evaluated == 2);
  ZQ_ASSERT_X(evaluated == 1, "void g(void)", "holds");
  getDebugbreakEnabled() = true;
  EXPECT_EQ(1, evaluated);
  ASSERT_EQ(1u, log.lines().size());
  EXPECT_NE(std::string::npos, log.lines()[0].find("[zq::assert_log_error] (++evaluated == 2) "));
  EXPECT_EQ(0u, debugger.messages()[0].find(L"ZQ_ASSERT:(++evaluated == 2)"));

  EXPECT_EXIT(ZQ_ASSERT(evaluated == 0), ::testing::KilledBySignal(SIGTRAP), "");
}
#endif

}  // namespace
}  // namespace zq
