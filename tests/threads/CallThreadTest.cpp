#include "tests/threads/CallTestHelpers.h"

#include <zq/foundation/Log.h>

#include "tests/support/ChildProcess.h"

#include <cstdio>
#include <functional>
#include <stdexcept>

#include <unistd.h>

namespace zq::test {
namespace {

const std::string kSleeps = "Async function call thread sleeps";

TEST_F(CallTest, FailingCallsAreLoggedAndTheThreadGoesOn) {
  CallOwner owner;
  LogCapture log;
  const Call::time_point base = Clock::now();
  owner.asyncCall([] { throw std::runtime_error("not in the log"); }, base);
  owner.asyncCall(std::function<void()>(), base + 1ns);
  owner.asyncCall([] { throw 42; }, base + 2ns);
  drainQueue();  // runs once the thread has gone past them
  const auto failed = testing::EndsWith("WARNING  [zq::CallThread::run] Async function call failed");
  EXPECT_THAT(log.linesWith("failed"), ElementsAre(failed, failed, failed));
}

// Queues a call `late` behind its time while the thread is held, so the thread reads the clock
// after us. Returns how late the call really started (an upper bound of what the thread
// measured) and the delay lines written.
std::pair<std::chrono::nanoseconds, std::vector<std::string>> runLate(std::chrono::nanoseconds late) {
  CallOwner owner;
  LogCapture log;
  std::promise<Call::time_point> started;
  Call::time_point due;
  {
    Gate gate;
    EXPECT_TRUE(gate.waitEntered());
    due = Clock::now() - late;
    owner.asyncCall([&] { started.set_value(Clock::now()); }, due);
  }
  const std::chrono::nanoseconds measured = started.get_future().get() - due;
  drainQueue();
  return {measured, log.linesWith("Async function delay")};
}

TEST_F(CallTest, DelayLineFrom51MillisecondsLate) {
  const auto [measured, lines] = runLate(51ms);
  ASSERT_EQ(1u, lines.size());
  EXPECT_THAT(lines[0], HasSubstr("WARNING  [zq::CallThread::run] Async function delay "));
  const long long reported = std::stoll(lines[0].substr(lines[0].find("delay ") + 6));
  EXPECT_TRUE(reported >= 51 && reported <= std::chrono::duration_cast<std::chrono::milliseconds>(measured).count());
  EXPECT_THAT(lines[0], HasSubstr(std::to_string(reported) + " msec"));

  // 50 ms and a fraction is not reported; retry until a run starts within the 51st millisecond.
  bool checked = false;
  for (int attempt = 0; attempt < 50 && !checked; ++attempt) {
    const auto [measured50, lines50] = runLate(50ms);
    if (measured50 >= 51ms) continue;
    checked = true;
    EXPECT_TRUE(lines50.empty()) << lines50[0];
  }
  EXPECT_TRUE(checked) << "no run started within 1 ms of being released";
}

// The thread sleeps towards a head an hour ahead; the next turn, brought on by a new call,
// deletes it once cancelled.
TEST_F(CallTest, CancelledFarHeadIsDeletedAtTheNextTurn) {
  CallOwner runner, owner;
  owner.asyncCall([] {}, 1h);
  owner.cancelCalls(false);
  const Call::time_point keep = Clock::now() + 2h;
  runner.asyncCall([] {}, keep);
  ASSERT_TRUE(waitFor([&] { return queuedTimes() == std::vector<Call::time_point>{keep}; }));
  runner.cancelCalls(false);
}

TEST_F(CallTest, SlowThreadEndsAfterIdlePeriodAndANewOneStarts) {
  CallOwner owner;
  LogCapture log;
  std::atomic<int> runs(0);
  owner.asyncCall([&] { ++runs; }, 0ns);
  ASSERT_TRUE(waitFor([&] { return !log.linesWith(kSleeps).empty(); }));
  const Clock::time_point asleep = Clock::now();
  ASSERT_TRUE(waitFor([] { return CallOwner::getThread() == nullptr; }, 60s));
  EXPECT_GE(Clock::now() - asleep, 29s) << "ended before its idle time was up";
  EXPECT_THAT(log.linesWith("finishes"),
              ElementsAre(HasSubstr("LOG      [zq::CallThread::run] Async function call thread finishes")));

  const std::string running = "LOG      [zq::CallThread::run] Async function call thread is running";
  const std::size_t started = log.linesWith(running).size();
  owner.asyncCall([&] { ++runs; }, 0ns);
  ASSERT_TRUE(waitFor([&] { return runs == 2; }));
  EXPECT_EQ(started + 1, log.linesWith(running).size());
}

// ---- a program returning from main with the thread alive, run as a child process ----

std::atomic<int> g_exitRuns(0);

std::string exitLogPath(pid_t parent) { return "/tmp/zq_call_exit_" + std::to_string(parent) + ".log"; }

void logToParentsFile() {
  const std::string path = exitLogPath(::getppid());
  Log::instance().setLogFile(std::wstring(path.begin(), path.end()), true);
}

// Calls of an owner never destroyed, some falling due during the exit hooks, and a cancelled one.
TEST(CallThreadExitChild, DISABLED_ReturnsWithCallsQueued) {
  logToParentsFile();
  static CallOwner* const owner = new CallOwner();
  for (int i = 0; i < 200; ++i) owner->asyncCall([] { ++g_exitRuns; }, i * 20us);
  owner->asyncCall([] { ++g_exitRuns; }, 1h);
  CallOwner cancelled;
  cancelled.asyncCall([] { ++g_exitRuns; }, 2h);
  ASSERT_TRUE(waitFor([] { return g_exitRuns > 0; }));
}

TEST(CallThreadExitChild, DISABLED_ReturnsWithThreadIdle) {
  logToParentsFile();
  LogCapture log;
  CallOwner owner;
  owner.asyncCall([] { ++g_exitRuns; }, 0ns);
  ASSERT_TRUE(waitFor([&] { return !log.linesWith(kSleeps).empty(); }));
}

TEST(CallThreadExit, ProgramReturnsFromMainWithTheThreadAlive) {
  const std::string logPath = exitLogPath(::getpid());
  for (const char* name : {"ReturnsWithCallsQueued", "ReturnsWithThreadIdle"}) {
    std::remove(logPath.c_str());
    const ChildResult child = runChild(
        {selfExecutable(), std::string("--gtest_filter=*.DISABLED_") + name, "--gtest_also_run_disabled_tests"});
    EXPECT_TRUE(child.exited && child.exitCode == 0) << name << ": signal " << child.signal << "\n" << child.output;
    EXPECT_THAT(child.output,
                AllOf(HasSubstr("[  PASSED  ] 1 test"), Not(HasSubstr("Sanitizer")), Not(HasSubstr("runtime error"))));
  }
  std::remove(logPath.c_str());
}

}  // namespace
}  // namespace zq::test
