#include <zq/threads/Mutex.h>

#include <zq/foundation/Exception.h>

#include "tests/support/Wait.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

namespace zq::test {
namespace {

// Whether another thread could enter the section beneath the hold count right now.
struct ProbedMutex : Mutex {
  using Mutex::Mutex;
  bool freeForOthers() {
    return std::async(std::launch::async, [this] { return rawMutex()->try_lock() && (rawMutex()->unlock(), true); })
        .get();
  }
};

TEST(MutexTest, RecursiveHoldsKeepOthersOutUntilLastUnlock) {
  ProbedMutex m(Mutex::Recursive);
  m.lock();
  ASSERT_TRUE(m.tryLock());
  EXPECT_EQ(2u, m.lockCount());
  m.unlock();
  EXPECT_FALSE(m.freeForOthers());
  m.unlock();
  EXPECT_TRUE(m.freeForOthers());
}

TEST(MutexTest, NonRecursiveSecondLockThrowsAndLeavesSectionEnteredTwice) {
  ProbedMutex m;
  m.lock();
  EXPECT_FALSE(m.tryLock());
  EXPECT_THAT([&] { m.lock(); },
              testing::ThrowsMessage<RuntimeError>(testing::StrEq("Nonrecursive mutex locked twice")));
  m.unlock();
  EXPECT_FALSE(m.freeForOthers()) << "the failed lock's entry is still held";
  m.unlock();
  EXPECT_TRUE(m.freeForOthers());
  EXPECT_EQ(0xFFFFFFFFu, m.lockCount()) << "the failed lock was not counted";
}

TEST(MutexLockerTest, CountsAndReleasesItsHolds) {
  ProbedMutex m(Mutex::Recursive);
  { MutexLocker notLocking(m, false), nullLocker(nullptr, true); }
  EXPECT_EQ(0u, m.lockCount()) << "a locker that took nothing gives nothing back";
  {
    MutexLocker locker(&m, true);
    locker.unlock();
    locker.relock();
    locker.relock();
    EXPECT_EQ(2u, m.lockCount());
  }
  EXPECT_EQ(0u, m.lockCount()) << "the destructor gives back every hold";

  m.lock();
  {
    MutexLocker target(m, false), source(m, true);
    target = source;  // both now believe they hold once
  }
  EXPECT_TRUE(m.lockCount() == 0 && m.freeForOthers());
}

// Waiters that count themselves in under their own mutex, so the test knows they are in wait.
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
    return waitFor([&] { return MutexLocker(mutex), inside == count; });
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
  EXPECT_TRUE(waitFor([&] { return early.woken == 2; }));
  EXPECT_FALSE(waitFor([&] { return late.woken == 1; }, std::chrono::milliseconds(100)))
      << "the later waiter must not take the signal";
  condition.signal();
  EXPECT_TRUE(waitFor([&] { return late.woken == 1; }));
  a.join(), b.join(), c.join();
}

}  // namespace
}  // namespace zq::test
