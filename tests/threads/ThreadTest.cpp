#include <zq/threads/Thread.h>

#include <zq/foundation/Exception.h>
#include <zq/foundation/Log.h>

#include "tests/support/LogCapture.h"
#include "tests/support/Wait.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <ext/stdio_filebuf.h>
#include <functional>
#include <stdexcept>

namespace zq::test {
namespace {

int niceOf(pid_t tid) { return getpriority(PRIO_PROCESS, static_cast<id_t>(tid)); }
int niceAbove(int delta) { return std::min(19, std::max(-20, niceOf(getpid()) + delta)); }

// Records its thread's nice value and stack size, then runs `then`.
struct Body : Runnable {
  void run() override {
    nice = niceOf(gettid());
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &stack);
    pthread_attr_destroy(&attributes);
    started = true;
    if (then) then();
    ++runs;
  }
  std::function<void()> then;
  std::atomic<bool> started{false};
  std::atomic<int> runs{0}, nice{0};
  std::size_t stack = 0;
};

std::string report(const std::string& function, const std::string& what) {
  const std::string signature = "void __cdecl zq::Thread::" + function;
  return "[zq::assert_log_error_x] " + signature + ": " + what + " (( 0 == m_handle )) " + signature;
}

TEST(ThreadTest, SettingsAndStartAreRefusedAndReportedWhileAThreadExists) {
  const std::string mayNot = "Thread may not be running!";
  const std::string setPriority = report("setPriority(const enum zq::Thread::EThreadPriority &)", mayNot);
  const std::string start = report("start(const enum zq::Thread::EThreadPriority &)", "Thread my not be running");
  LogCapture log;
  std::atomic<bool> release(false);
  std::string waitError;
  Body body;
  Thread thread(&body);
  body.then = [&] {
    try {
      thread.wait();
    } catch (const RuntimeError& e) {
      waitError = e.whatStr();
    }
    waitFor([&] { return release.load(); }, std::chrono::minutes(1));
  };
  thread.start(Thread::Inherit);
  ASSERT_TRUE(waitFor([&] { return body.started.load(); }));

  thread.setRunnable(nullptr);
  thread.setStackSize(4096);
  thread.setPriority(Thread::Inherit);  // the priority it has: accepted in silence
  thread.setPriority(Thread::Lowest);
  thread.start(Thread::Inherit);
  thread.start(Thread::Normal);  // another priority: reported twice
  EXPECT_EQ((std::vector<std::string>{report("setRunnable(class zq::Runnable *)", mayNot),
                                      report("setStackSize(unsigned __int64)", mayNot), setPriority, start, setPriority,
                                      start}),
            log.bodies());
  EXPECT_TRUE(thread.runnable() == &body && thread.stackSize() == 0 && thread.priority() == Thread::Inherit);

  // A body that has returned still counts as running until somebody waits.
  release = true;
  ASSERT_TRUE(waitFor([&] { return body.runs == 1; }));
  thread.setStackSize(4096);
  EXPECT_EQ(0u, thread.stackSize());
  thread.wait();
  thread.setStackSize(4096);
  EXPECT_EQ(4096u, thread.stackSize());
  EXPECT_EQ(1, body.runs.load()) << "refused starts must not run the body";
  EXPECT_EQ("bool __cdecl zq::Thread::wait(void) Waiting on thread failed", waitError) << "a wait on itself";
}

TEST(ThreadTest, StackSizeAndPriorityAreInForceBeforeTheBodyRuns) {
  Body body;
  Thread thread(&body);
  EXPECT_TRUE(thread.wait()) << "never started";
  thread.setStackSize(3 << 20);
  thread.start();
  EXPECT_TRUE(thread.wait() && thread.wait());
  EXPECT_GE(body.stack, std::size_t(3 << 20));
  thread.setStackSize(1);  // rounded up to what the system accepts
  for (auto [priority, nice] : {std::pair{Thread::Lowest, 10}, {Thread::Idle, 19}, {Thread::Normal, 0}}) {
    thread.start(priority);
    thread.wait();
    EXPECT_EQ(niceAbove(nice), body.nice.load()) << priority;
  }
  // Inherit keeps what the creating thread has.
  std::thread creator([&] {
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), niceAbove(3));
    thread.start(Thread::Inherit);
    thread.wait();
  });
  creator.join();
  EXPECT_EQ(niceAbove(3), body.nice.load());
  EXPECT_EQ(5, body.runs.load());
}

TEST(ThreadTest, RaisedPriorityWhenPrivileged) {
  bool mayRaise = false;
  std::thread([&] { mayRaise = setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), niceAbove(-1)) == 0; }).join();
  if (!mayRaise || niceAbove(-1) == niceAbove(0)) GTEST_SKIP() << "no privilege to raise thread priorities";
  Body body;
  Thread(&body).start(Thread::Highest);  // the destructor waits
  EXPECT_EQ(niceAbove(-10), body.nice.load());
}

// Exits 0 when start refuses to raise the priority with the exact text and the body never runs.
void raiseWithoutPrivilege() {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_NICE, &none);
  if (geteuid() == 0 && setuid(65534) != 0) _exit(3);  // root loses CAP_SYS_NICE with it
  Body body;
  Thread thread(&body);
  try {
    thread.start(Thread::Highest);
    _exit(1);
  } catch (const RuntimeError& e) {
    if (e.whatStr() != "void __cdecl zq::Thread::updatePriority(void) Changing thread priority failed!") _exit(2);
  }
  thread.wait();
  _exit(body.runs);
}

TEST(ThreadDeathTest, RaisingWithoutPrivilegeFailsAndTheBodyNeverRuns) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(raiseWithoutPrivilege(), testing::ExitedWithCode(0), "");
}

TEST(ThreadTest, ReportsAMissingRunnable) {
  LogCapture log;
  Thread().start();  // the destructor waits
  const std::string worker = "unsigned long __cdecl zq::Thread::worker(void *)";
  EXPECT_EQ(std::vector<std::string>{"[zq::assert_log_error_x] " + worker +
                                     ": Runnable must be set! (( 0 != "
                                     "static_cast<Thread *>(thread_object)->runnable() )) " +
                                     worker},
            log.bodies());
}

TEST(ThreadSlowDeathTest, MssleepOfZeroReturnsAndOfAllOnesNeverDoes) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT((alarm(1), Thread::mssleep(0), Thread::mssleep(0xFFFFFFFFu)), testing::KilledBySignal(SIGALRM), "");
}

// Runs `body` on a Thread with the Critical level on standard error, where the death test reads
// it; through descriptor 2's file offset, so that the runtime's last words don't overwrite it.
void runLogged(std::function<void()> then) {
  static __gnu_cxx::stdio_filebuf<wchar_t> buffer(dup(STDERR_FILENO), std::ios::out);
  static std::wostream err(&buffer);
  Log::instance().setStream(Log::Critical, &err, false);
  Body body;
  body.then = std::move(then);
  Thread thread(&body);
  thread.start();
  thread.wait();
}

TEST(ThreadDeathTest, EscapingExceptionIsLoggedThenEndsTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const std::string line =
      "\\[zq::Thread::worker\\] unsigned long __cdecl zq::Thread::worker\\(void \\*\\): "
      "Unhandled exception";
  const auto aborts = testing::KilledBySignal(SIGABRT);
  EXPECT_EXIT(runLogged([] {
                const RuntimeError cause("disk gone");
                throw RuntimeError("saving failed", &cause);
              }),
              aborts, line + " - saving failed\n caused by: disk gone");
  EXPECT_EXIT(runLogged([] { throw std::out_of_range("index 7"); }), aborts, line + " - index 7");
  EXPECT_EXIT(runLogged([] { throw 42; }), aborts, line + "\n");
}

}  // namespace
}  // namespace zq::test
