#include <zq/threads/Mutex.h>

#include <zq/foundation/Exception.h>

#include "tests/support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

namespace {

using zq::Mutex;

// Whether another thread could take the mutex right now.
bool freeForOthers(Mutex& m) {
  return std::async(std::launch::async,
                    [&m] {
                      if (!m.tryLock()) return false;
                      m.unlock();
                      return true;
                    })
      .get();
}

// Reaches the section itself, to see its entries independently of the count.
class RawMutex : public Mutex {
 public:
  bool sectionFreeForOthers() {
    return std::async(std::launch::async,
                      [this] {
                        if (!rawMutex()->try_lock()) return false;
                        rawMutex()->unlock();
                        return true;
                      })
        .get();
  }
};

TEST(MutexTest, RecursiveHoldsKeepOthersOutUntilLastUnlock) {
  EXPECT_FALSE(Mutex().recursive());
  EXPECT_EQ(Mutex::NonRecursive, Mutex().mode());

  Mutex m(Mutex::Recursive);
  m.lock();
  ASSERT_TRUE(m.tryLock());
  EXPECT_EQ(2u, m.lockCount());
  m.unlock();
  EXPECT_FALSE(freeForOthers(m)) << "one of two holds given back must still exclude others";
  m.unlock();
  EXPECT_EQ(0u, m.lockCount());
  EXPECT_TRUE(freeForOthers(m));
}

TEST(MutexTest, NonRecursiveSecondLockThrowsAndLeavesSectionEnteredTwice) {
  RawMutex m;
  m.lock();
  EXPECT_FALSE(m.tryLock());
  EXPECT_EQ(1u, m.lockCount());
  try {
    m.lock();
    FAIL() << "no exception";
  } catch (const zq::RuntimeError& e) {
    EXPECT_STREQ("Nonrecursive mutex locked twice", e.what());
    EXPECT_EQ(nullptr, e.cause());
  }
  EXPECT_EQ(1u, m.lockCount()) << "the failed lock must not count";
  m.unlock();
  EXPECT_FALSE(m.sectionFreeForOthers()) << "the failed lock's entry must still be held";
  m.unlock();
  EXPECT_TRUE(m.sectionFreeForOthers());
  EXPECT_EQ(0xFFFFFFFFu, m.lockCount());
}

TEST(MutexTest, ExcludesUnderContention) {
  Mutex m(Mutex::Recursive);
  long counter = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; ++i) {
        zq::MutexLocker outer(m);
        zq::MutexLocker inner(m);
        ++counter;
      }
    });
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(4 * 20000, counter);
  EXPECT_EQ(0u, m.lockCount());
  EXPECT_NE(0ul, Mutex::currentThreadId());
}

TEST(MutexLockerTest, CountsAndReleasesItsHolds) {
  Mutex m(Mutex::Recursive);
  { zq::MutexLocker notLocking(m, false); }
  EXPECT_EQ(0u, m.lockCount()) << "a locker that took nothing gives nothing back";

  {
    zq::MutexLocker locker(&m, true);
    locker.unlock();
    EXPECT_EQ(0u, m.lockCount());
    locker.relock();
    locker.relock();
    EXPECT_EQ(2u, m.lockCount());
  }
  EXPECT_EQ(0u, m.lockCount()) << "the destructor gives back every hold";

  { zq::MutexLocker nullLocker(nullptr, true); }

  m.lock();
  {
    zq::MutexLocker target(m, false);
    zq::MutexLocker source(m, true);
    target = source;  // both now believe they hold once: two unlocks at scope end
  }
  EXPECT_EQ(0u, m.lockCount());
  EXPECT_TRUE(freeForOthers(m));
}

// Waiters on a shared condition that register under their own mutex, so the test knows
// when they are inside wait.
struct Waiters {
  explicit Waiters(zq::ConditionVariable& c) : condition(c) {}

  zq::ConditionVariable& condition;
  Mutex mutex;
  int inside = 0;
  std::atomic<int> woken{0};

  std::thread startOne() {
    return std::thread([this] {
      mutex.lock();
      ++inside;
      condition.wait(&mutex);
      ++woken;
      mutex.unlock();
    });
  }
  bool allInside(int count) {
    return zq::test::waitFor([&] {
      zq::MutexLocker locker(mutex);
      return inside == count;
    });
  }
};

TEST(ConditionVariableTest, SignalAllWakesThoseWaitingAndNotALaterOne) {
  zq::ConditionVariable condition;
  Waiters early(condition), late(condition);
  condition.signal();  // nobody waits: no trace
  std::thread a = early.startOne(), b = early.startOne();
  ASSERT_TRUE(early.allInside(2));

  std::thread c;
  {
    // The early waiters can't take their mutex back yet, so the event is still set when the
    // late one starts to wait.
    zq::MutexLocker locker(early.mutex);
    condition.signalAll();
    c = late.startOne();
    EXPECT_TRUE(late.allInside(1));
  }
  EXPECT_TRUE(zq::test::waitFor([&] { return early.woken == 2; })) << "both earlier waiters wake";
  EXPECT_FALSE(zq::test::waitFor([&] { return late.woken == 1; }, std::chrono::milliseconds(100)))
      << "the later waiter must not take the signal";

  condition.signal();
  EXPECT_TRUE(zq::test::waitFor([&] { return late.woken == 1; }));
  a.join();
  b.join();
  c.join();
}

}  // namespace
