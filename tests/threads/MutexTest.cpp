#include <zq/threads/Mutex.h>

#include <zq/foundation/Exception.h>

#include "tests/support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

namespace zq::test {
namespace {

// Sees whether another thread could enter the section beneath the hold count right now.
struct ProbedMutex : Mutex {
  using Mutex::Mutex;
  bool freeForOthers() {
    return std::async(std::launch::async, [this] { return rawMutex()->try_lock() && (rawMutex()->unlock(), true); })
        .get();
  }
};

TEST(MutexTest, RecursiveHoldsKeepOthersOutUntilLastUnlock) {
  EXPECT_FALSE(Mutex().recursive());
  ProbedMutex m(Mutex::Recursive);
  m.lock();
  ASSERT_TRUE(m.tryLock());
  EXPECT_EQ(2u, m.lockCount());
  m.unlock();
  EXPECT_FALSE(m.freeForOthers()) << "one of two holds given back must still exclude others";
  m.unlock();
  EXPECT_TRUE(m.freeForOthers());
}

TEST(MutexTest, NonRecursiveSecondLockThrowsAndLeavesSectionEnteredTwice) {
  ProbedMutex m;
  m.lock();
  EXPECT_FALSE(m.tryLock());
  try {
    m.lock();
    FAIL() << "no exception";
  } catch (const RuntimeError& e) {
    EXPECT_STREQ("Nonrecursive mutex locked twice", e.what());
    EXPECT_EQ(nullptr, e.cause());
  }
  EXPECT_EQ(1u, m.lockCount()) << "the failed lock must not count";
  m.unlock();
  EXPECT_FALSE(m.freeForOthers()) << "the failed lock's entry must still be held";
  m.unlock();
  EXPECT_TRUE(m.freeForOthers());
  EXPECT_EQ(0xFFFFFFFFu, m.lockCount());
}

TEST(MutexLockerTest, CountsAndReleasesItsHolds) {
  ProbedMutex m(Mutex::Recursive);
  { MutexLocker notLocking(m, false); }
  { MutexLocker nullLocker(nullptr, true); }
  EXPECT_EQ(0u, m.lockCount()) << "a locker that took nothing gives nothing back";
  {
    MutexLocker locker(&m, true);
    locker.unlock();
    EXPECT_EQ(0u, m.lockCount());
    locker.relock();
    locker.relock();
    EXPECT_EQ(2u, m.lockCount());
  }
  EXPECT_EQ(0u, m.lockCount()) << "the destructor gives back every hold";

  m.lock();
  {
    MutexLocker target(m, false), source(m, true);
    target = source;  // both now believe they hold once: two unlocks at scope end
  }
  EXPECT_EQ(0u, m.lockCount());
  EXPECT_TRUE(m.freeForOthers());
}

// Waiters on a shared condition that count themselves in under their own mutex, so the test
// knows when they are inside wait.
struct Waiters {
  explicit Waiters(ConditionVariable& c) : condition(c) {}
  ConditionVariable& condition;
  Mutex mutex;
  int inside = 0;
  std::atomic<int> woken{0};

  std::thread startOne() {
    return std::thread([this] {
      MutexLocker locker(mutex);
      ++inside;
      condition.wait(&mutex);
      ++woken;
    });
  }
  bool allInside(int count) {
    return waitFor([&] {
      MutexLocker locker(mutex);
      return inside == count;
    });
  }
};

TEST(ConditionVariableTest, SignalAllWakesThoseWaitingAndNotALaterOne) {
  ConditionVariable condition;
  Waiters early(condition), late(condition);
  condition.signal();  // nobody waits: no trace
  std::thread a = early.startOne(), b = early.startOne(), c;
  ASSERT_TRUE(early.allInside(2));
  {
    // The early waiters can't take their mutex back yet, so the event is still set when the
    // late one starts to wait.
    MutexLocker locker(early.mutex);
    condition.signalAll();
    c = late.startOne();
    EXPECT_TRUE(late.allInside(1));
  }
  EXPECT_TRUE(waitFor([&] { return early.woken == 2; })) << "both earlier waiters wake";
  EXPECT_FALSE(waitFor([&] { return late.woken == 1; }, std::chrono::milliseconds(100)))
      << "the later waiter must not take the signal";
  condition.signal();
  EXPECT_TRUE(waitFor([&] { return late.woken == 1; }));
  a.join(), b.join(), c.join();
}

}  // namespace
}  // namespace zq::test
