#include <zq/threads/ReadWriteLock.h>

#include <zq/foundation/Exception.h>

#include "tests/support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using zq::ReadWriteLock;

// Asked from another thread, as the lock's try forms answer differently for the writer itself.
bool othersCan(ReadWriteLock& lock, ReadWriteLock::ELockMode mode) {
  return std::async(std::launch::async,
                    [&lock, mode] {
                      if (!lock.tryLockFor(mode)) return false;
                      lock.unlock();
                      return true;
                    })
      .get();
}

TEST(ReadWriteLockTest, ReadersShareAndExcludeWriters) {
  ReadWriteLock lock;
  lock.lockForRead();
  ASSERT_TRUE(lock.tryLockForRead());
  EXPECT_TRUE(othersCan(lock, ReadWriteLock::Read));
  EXPECT_FALSE(lock.tryLockForWrite());
  EXPECT_FALSE(othersCan(lock, ReadWriteLock::Write));
  EXPECT_TRUE(othersCan(lock, ReadWriteLock::Read)) << "a failed try for writing must not block readers";
  lock.unlock();
  EXPECT_FALSE(othersCan(lock, ReadWriteLock::Write)) << "one reader is still inside";
  lock.unlock();
  EXPECT_TRUE(othersCan(lock, ReadWriteLock::Write));
}

TEST(ReadWriteLockTest, WriterExcludesEveryoneAndCannotLockAgain) {
  ReadWriteLock lock;
  lock.lockForWrite();
  EXPECT_FALSE(othersCan(lock, ReadWriteLock::Read));
  EXPECT_FALSE(othersCan(lock, ReadWriteLock::Write));
  EXPECT_FALSE(lock.tryLockForRead());
  EXPECT_FALSE(lock.tryLockForWrite());
  try {
    lock.lockForRead();
    FAIL() << "no exception";
  } catch (const zq::RuntimeError& e) {
    EXPECT_STREQ("Nonrecursive mutex locked twice", e.what());
  }
  // The failed lock entered the turnstile once more: it takes two unlocks to leave it.
  lock.unlock();
  EXPECT_FALSE(othersCan(lock, ReadWriteLock::Read));
  lock.unlock();  // leaves the section; the turnstile's count stays wrapped, as for any Mutex
}

TEST(ReadWriteLockTest, WaitingWriterGoesBeforeNewReaders) {
  ReadWriteLock lock;
  std::mutex orderMutex;
  std::vector<std::string> order;
  auto record = [&](const char* who) {
    std::lock_guard<std::mutex> guard(orderMutex);
    order.push_back(who);
  };

  lock.lockForRead();
  std::thread writer([&] {
    lock.lockForWrite();
    record("writer");
    lock.unlock();
  });
  // Once the writer waits at the readers' count, it holds the turnstile.
  ASSERT_TRUE(zq::test::waitFor([&] { return !othersCan(lock, ReadWriteLock::Read); }));

  std::atomic<bool> readerStarted{false};
  std::thread reader([&] {
    readerStarted = true;
    lock.lockForRead();
    record("reader");
    lock.unlock();
  });
  ASSERT_TRUE(zq::test::waitFor([&] { return readerStarted.load(); }));
  lock.unlock();
  writer.join();
  reader.join();
  EXPECT_EQ((std::vector<std::string>{"writer", "reader"}), order);
}

TEST(ReadWriteLockTest, OutOfRangeModesDoNothing) {
  ReadWriteLock lock;
  const auto bad = static_cast<ReadWriteLock::ELockMode>(2);
  lock.lockFor(bad);
  EXPECT_FALSE(lock.tryLockFor(bad));
  { zq::ReadWriteLocker locker(lock, bad); }
  EXPECT_TRUE(othersCan(lock, ReadWriteLock::Write)) << "nothing may be held or released";
}

TEST(ReadWriteLockerTest, DestructorGivesBackOneHoldOnly) {
  ReadWriteLock lock;
  { zq::ReadWriteLocker idle(&lock, ReadWriteLock::Read, false); }
  // A stray unlock would have released a turnstile nobody held and broken later writers.
  EXPECT_TRUE(othersCan(lock, ReadWriteLock::Write));

  {
    zq::ReadWriteLocker locker(lock, ReadWriteLock::Read);
    locker.lock(ReadWriteLock::Read);
  }
  EXPECT_FALSE(othersCan(lock, ReadWriteLock::Write)) << "one of the two read holds must remain";
  lock.unlock();
  EXPECT_TRUE(othersCan(lock, ReadWriteLock::Write));

  {
    zq::ReadWriteLocker writer(lock, ReadWriteLock::Write);
    EXPECT_FALSE(othersCan(lock, ReadWriteLock::Read));
  }
  EXPECT_TRUE(othersCan(lock, ReadWriteLock::Read));
}

}  // namespace
