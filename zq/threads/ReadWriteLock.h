// A reader/writer lock for clients, ReadWriteLock, and its scoped guard ReadWriteLocker.
#pragma once

#include <zq/Export.h>
#include <zq/threads/Mutex.h>

#include <cstdint>

namespace zq {

// Many readers at once, or one writer. Readers pass a turnstile that a writer holds for its
// whole time, so an arriving writer stops new readers and only waits for those inside:
// writers are not starved.
//
// All operations may be called from any thread. Read holds are counts, not tied to a thread;
// a write hold must be released by the thread that took it. A thread that holds the lock
// for writing and locks it again gets the "Nonrecursive mutex locked twice" RuntimeError;
// one that holds it for reading and asks to write waits for ever.
class ZQ_API ReadWriteLock {
 public:
  enum ELockMode { Read = 0, Write = 1 };

  ReadWriteLock();
  virtual ~ReadWriteLock();

  void lockForRead();
  void lockForWrite();
  // False, with nothing changed, when the lock can't be had at once.
  bool tryLockForRead();
  bool tryLockForWrite();
  // Any other mode than Read or Write: lockFor does nothing, tryLockFor returns false.
  void lockFor(ELockMode mode);
  bool tryLockFor(ELockMode mode);
  // Releases a read hold if any reader is counted, otherwise the write hold.
  void unlock();

 private:
  ReadWriteLock(const ReadWriteLock&);
  ReadWriteLock& operator=(const ReadWriteLock&);

  Mutex m_countMutex;
  ConditionVariable m_noReaders;
  std::uint64_t m_readers;
  Mutex m_turnstile;
};

// Holds on a ReadWriteLock taken through this object, counted by kind. For one thread; the
// lock is not owned and must outlive the locker.
//
// Unlike MutexLocker, the destructor gives back one hold only (a write hold first); a locker
// with more holds must be unlocked by hand down to one. A copy believes it has the same
// holds as the original.
class ZQ_API ReadWriteLocker {
 public:
  typedef ReadWriteLock::ELockMode ELockMode;

  ReadWriteLocker(ReadWriteLock& lock, ELockMode mode, bool doLock = true);
  ReadWriteLocker(ReadWriteLock* lock, ELockMode mode, bool doLock = true);
  virtual ~ReadWriteLocker();

  ReadWriteLocker(const ReadWriteLocker& other) = default;
  ReadWriteLocker& operator=(const ReadWriteLocker& other) = default;

  // Takes a hold of `mode` and counts it; any other mode than Read or Write does nothing.
  void lock(ELockMode mode);
  // Gives back a write hold if the locker counts one, else a read hold; no check that any is held.
  void unlock();

 private:
  ReadWriteLock* m_lock;
  std::uint64_t m_holds[2];
};

}  // namespace zq
