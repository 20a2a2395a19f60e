#include <zq/threads/ReadWriteLock.h>

#include <zq/foundation/Exception.h>

#include "tests/support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

namespace zq::test {
namespace {

const ReadWriteLock::ELockMode Read = ReadWriteLock::Read, Write = ReadWriteLock::Write;

// Asked from another thread, as the try forms answer differently for the writer itself.
bool othersCan(ReadWriteLock& lock, ReadWriteLock::ELockMode mode) {
  return std::async(std::launch::async, [&lock, mode] { return lock.tryLockFor(mode) && (lock.unlock(), true); }).get();
}

TEST(ReadWriteLockTest, ReadersShareAndAWriterExcludesEveryone) {
  ReadWriteLock lock;
  lock.lockForRead();
  ASSERT_TRUE(lock.tryLockForRead());
  EXPECT_FALSE(lock.tryLockForWrite());
  EXPECT_TRUE(othersCan(lock, Read)) << "a failed try for writing must not block readers";
  lock.unlock();
  EXPECT_FALSE(othersCan(lock, Write)) << "one reader is still inside";
  lock.unlock();

  lock.lockForWrite();
  EXPECT_FALSE(othersCan(lock, Read) || othersCan(lock, Write) || lock.tryLockForRead() || lock.tryLockForWrite());
  EXPECT_THROW(lock.lockForRead(), RuntimeError);
  // The failed lock entered the turnstile once more: it takes two unlocks to leave it.
  lock.unlock();
  EXPECT_FALSE(othersCan(lock, Read));
  lock.unlock();
}

TEST(ReadWriteLockTest, WaitingWriterGoesBeforeNewReaders) {
  ReadWriteLock lock;
  std::atomic<bool> writerDone(false), readerStarted(false), readerSawWriter(false);
  lock.lockForRead();
  std::thread writer([&] {
    lock.lockForWrite();
    writerDone = true;
    lock.unlock();
  });
  // Once the writer waits at the readers' count, it holds the turnstile.
  ASSERT_TRUE(waitFor([&] { return !othersCan(lock, Read); }));
  std::thread reader([&] {
    readerStarted = true;
    lock.lockForRead();
    readerSawWriter = writerDone.load();
    lock.unlock();
  });
  ASSERT_TRUE(waitFor([&] { return readerStarted.load(); }));
  lock.unlock();
  writer.join(), reader.join();
  EXPECT_TRUE(readerSawWriter);
}

TEST(ReadWriteLockerTest, DestructorGivesBackOneHoldOnlyAndOutOfRangeModesNone) {
  ReadWriteLock lock;
  const auto bad = static_cast<ReadWriteLock::ELockMode>(2);
  lock.lockFor(bad);
  EXPECT_FALSE(lock.tryLockFor(bad));
  { ReadWriteLocker idle(&lock, Read, false), badLocker(lock, bad); }
  // A stray unlock would have released a turnstile nobody held and broken later writers.
  EXPECT_TRUE(othersCan(lock, Write));
  {
    ReadWriteLocker locker(lock, Read);
    locker.lock(Read);
  }
  EXPECT_FALSE(othersCan(lock, Write)) << "one of the two read holds must remain";
  lock.unlock();
  {
    ReadWriteLocker writer(lock, Write);
    EXPECT_FALSE(othersCan(lock, Read));
  }
  EXPECT_TRUE(othersCan(lock, Read) && othersCan(lock, Write));
}

}  // namespace
}  // namespace zq::test
