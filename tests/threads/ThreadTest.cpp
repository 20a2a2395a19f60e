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
#include <atomic>
#include <chrono>
#include <csignal>
#include <ext/stdio_filebuf.h>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using zq::Thread;

int niceOf(unsigned long tid) { return getpriority(PRIO_PROCESS, static_cast<id_t>(tid)); }
int processNice() { return niceOf(static_cast<unsigned long>(getpid())); }
int clampNice(int n) { return std::min(19, std::max(-20, n)); }

// Records what the thread sees of itself, then runs until released.
class Body : public zq::Runnable {
 public:
  void run() override {
    tid = static_cast<unsigned long>(gettid());
    nice = niceOf(tid);
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    std::size_t size = 0;
    pthread_attr_getstacksize(&attributes, &size);
    stack = size;
    pthread_attr_destroy(&attributes);
    started = true;
    zq::test::waitFor([this] { return released.load(); }, std::chrono::seconds(60));
    ++runs;
  }

  std::atomic<bool> started{false}, released{true};
  std::atomic<int> runs{0};
  std::atomic<unsigned long> tid{0};
  std::atomic<int> nice{0};
  std::atomic<std::size_t> stack{0};
};

TEST(ThreadTest, StartsWaitsAndStartsAgainWithItsStackSize) {
  Body body;
  Thread thread(&body);
  EXPECT_TRUE(thread.wait()) << "never started";
  thread.setStackSize(3 << 20);
  thread.start();
  EXPECT_TRUE(thread.wait());
  EXPECT_TRUE(thread.wait()) << "second wait";
  EXPECT_EQ(1, body.runs.load());
  EXPECT_EQ(body.tid.load(), thread.threadId());
  EXPECT_GE(body.stack.load(), std::size_t(3 << 20));
  thread.setStackSize(1);  // rounded up to what the system accepts
  thread.start(Thread::Normal);
  thread.wait();
  EXPECT_EQ(2, body.runs.load());
}

std::string report(const std::string& signature, const std::string& what) {
  return "[zq::assert_log_error_x] " + signature + ": " + what + " (( 0 == m_handle )) " + signature;
}

TEST(ThreadTest, SettingsAreRefusedAndReportedWhileAThreadExists) {
  const std::string setRunnable = "void __cdecl zq::Thread::setRunnable(class zq::Runnable *)";
  const std::string setStackSize = "void __cdecl zq::Thread::setStackSize(unsigned __int64)";
  const std::string setPriority = "void __cdecl zq::Thread::setPriority(const enum zq::Thread::EThreadPriority &)";
  const std::string start = "void __cdecl zq::Thread::start(const enum zq::Thread::EThreadPriority &)";

  zq::test::LogCapture log;
  Body body;
  body.released = false;
  Thread thread(&body);
  thread.setStackSize(1 << 20);
  thread.start(Thread::Inherit);
  ASSERT_TRUE(zq::test::waitFor([&] { return body.started.load(); }));

  thread.setRunnable(nullptr);
  thread.setStackSize(4096);
  thread.setPriority(Thread::Inherit);  // the priority it has: accepted in silence
  thread.setPriority(Thread::Lowest);
  EXPECT_EQ((std::vector<std::string>{report(setRunnable, "Thread may not be running!"),
                                      report(setStackSize, "Thread may not be running!"),
                                      report(setPriority, "Thread may not be running!")}),
            log.bodies());
  EXPECT_EQ(&body, thread.runnable());
  EXPECT_EQ(std::size_t(1 << 20), thread.stackSize());
  EXPECT_EQ(Thread::Inherit, thread.priority());

  log.clear();
  thread.start(Thread::Inherit);
  EXPECT_EQ(std::vector<std::string>{report(start, "Thread my not be running")}, log.bodies());
  log.clear();
  thread.start(Thread::Normal);
  EXPECT_EQ((std::vector<std::string>{report(setPriority, "Thread may not be running!"),
                                      report(start, "Thread my not be running")}),
            log.bodies());

  // A body that has returned still counts as running until somebody waits.
  body.released = true;
  ASSERT_TRUE(zq::test::waitFor([&] { return body.runs == 1; }));
  log.clear();
  thread.setStackSize(4096);
  EXPECT_EQ(1u, log.linesWith("Thread may not be running!").size());
  EXPECT_EQ(std::size_t(1 << 20), thread.stackSize());
  EXPECT_EQ(1, body.runs.load()) << "refused starts must not run the body";
  thread.wait();
  thread.setStackSize(4096);
  EXPECT_EQ(std::size_t(4096), thread.stackSize());
}

TEST(ThreadTest, PriorityIsInForceBeforeTheBodyRuns) {
  const int base = processNice();
  Body body;
  Thread thread(&body);
  thread.start(Thread::Lowest);
  thread.wait();
  EXPECT_EQ(clampNice(base + 10), body.nice.load());
  thread.start(Thread::Idle);
  thread.wait();
  EXPECT_EQ(clampNice(base + 19), body.nice.load());
  thread.start(Thread::Normal);
  thread.wait();
  EXPECT_EQ(base, body.nice.load());

  // Inherit keeps what the creating thread has.
  std::thread creator([&] {
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), clampNice(base + 3));
    thread.start(Thread::Inherit);
    thread.wait();
  });
  creator.join();
  EXPECT_EQ(clampNice(base + 3), body.nice.load());
}

// Whether this process may give a thread a lower nice value than it has.
bool mayRaisePriority() {
  bool allowed = false;
  std::thread probe(
      [&] { allowed = setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), niceOf(gettid()) - 1) == 0; });
  probe.join();
  return allowed;
}

TEST(ThreadTest, RaisedPriorityWhenPrivileged) {
  if (!mayRaisePriority()) GTEST_SKIP() << "no privilege to raise thread priorities";
  Body body;
  Thread thread(&body);
  thread.start(Thread::Highest);
  thread.wait();
  EXPECT_EQ(clampNice(processNice() - 10), body.nice.load());
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
  } catch (const zq::RuntimeError& e) {
    if (std::string(e.what()) != "void __cdecl zq::Thread::updatePriority(void) Changing thread priority failed!")
      _exit(2);
  }
  thread.wait();
  _exit(body.runs == 0 ? 0 : 4);
}

TEST(ThreadDeathTest, RaisingWithoutPrivilegeFailsAndTheBodyNeverRuns) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(raiseWithoutPrivilege(), testing::ExitedWithCode(0), "");
}

TEST(ThreadTest, ReportsMissingRunnableAndWaitOnItself) {
  zq::test::LogCapture log;
  Thread empty;
  empty.start();
  empty.wait();
  EXPECT_EQ(
      std::vector<std::string>{"[zq::assert_log_error_x] unsigned long __cdecl zq::Thread::worker(void *): "
                               "Runnable must be set! (( 0 != static_cast<Thread *>(thread_object)->runnable() )) "
                               "unsigned long __cdecl zq::Thread::worker(void *)"},
      log.bodies());

  struct WaitsOnItself : zq::Runnable {
    Thread* self = nullptr;
    std::string error;
    void run() override {
      try {
        self->wait();
      } catch (const zq::RuntimeError& e) {
        error = e.what();
      }
    }
  } body;
  Thread thread(&body);
  body.self = &thread;
  thread.start();
  thread.wait();
  EXPECT_EQ("bool __cdecl zq::Thread::wait(void) Waiting on thread failed", body.error);
}

TEST(ThreadTest, DestructorBlocksUntilRunReturns) {
  Body body;
  body.released = false;
  std::thread releaser([&] {
    zq::test::waitFor([&] { return body.started.load(); });
    body.released = true;
  });
  {
    Thread thread(&body);
    thread.start();
  }
  EXPECT_EQ(1, body.runs.load());
  releaser.join();
}

TEST(ThreadTest, MssleepSleepsAtLeastTheTimeAndZeroYields) {
  const auto before = std::chrono::steady_clock::now();
  Thread::mssleep(0);
  Thread::mssleep(30);
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(30));
  EXPECT_EQ(0xFFFFFFFFFFFFFFFFull, Thread::k_forever);
}

TEST(ThreadSlowDeathTest, MssleepOfAllOnesNeverReturns) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        alarm(1);
        Thread::mssleep(0xFFFFFFFFu);
      },
      testing::KilledBySignal(SIGALRM), "");
}

// Sends the Critical level to standard error, where the death test reads it. Through the
// same file offset as descriptor 2, so that the runtime's own last words don't overwrite it.
void logToStderr() {
  static __gnu_cxx::stdio_filebuf<wchar_t> buffer(dup(STDERR_FILENO), std::ios::out);
  static std::wostream err(&buffer);
  zq::Log::instance().setStream(zq::Log::Critical, &err, false);
  zq::Log::instance().setLogLevel(zq::Log::Debug);
}

struct Throwing : zq::Runnable {
  std::function<void()> body;
  void run() override { body(); }
};

void runAndWait(std::function<void()> body) {
  logToStderr();
  Throwing runnable;
  runnable.body = std::move(body);
  Thread thread(&runnable);
  thread.start();
  thread.wait();
}

TEST(ThreadDeathTest, EscapingExceptionIsLoggedThenEndsTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const std::string line = "\\[zq::Thread::worker\\] unsigned long __cdecl zq::Thread::worker\\(void \\*\\): ";
  EXPECT_EXIT(runAndWait([] {
                const zq::RuntimeError cause("disk gone");
                throw zq::RuntimeError("saving failed", &cause);
              }),
              testing::KilledBySignal(SIGABRT), line + "Unhandled exception - saving failed\n caused by: disk gone");
  EXPECT_EXIT(runAndWait([] { throw std::out_of_range("index 7"); }), testing::KilledBySignal(SIGABRT),
              line + "Unhandled exception - index 7");
  EXPECT_EXIT(runAndWait([] { throw 42; }), testing::KilledBySignal(SIGABRT), line + "Unhandled exception\n");
}

}  // namespace
