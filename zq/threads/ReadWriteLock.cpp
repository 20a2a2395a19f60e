#include <zq/threads/ReadWriteLock.h>

namespace zq {

ReadWriteLock::ReadWriteLock() : m_countMutex(Mutex::NonRecursive), m_readers(0), m_turnstile(Mutex::NonRecursive) {}

ReadWriteLock::~ReadWriteLock() {}

void ReadWriteLock::lockForRead() {
  m_turnstile.lock();
  m_countMutex.lock();
  ++m_readers;
  m_countMutex.unlock();
  m_turnstile.unlock();
}

void ReadWriteLock::lockForWrite() {
  m_turnstile.lock();  // kept until unlock: no new reader gets past it
  m_countMutex.lock();
  while (m_readers != 0) m_noReaders.wait(&m_countMutex);
  m_countMutex.unlock();
}

bool ReadWriteLock::tryLockForRead() {
  if (!m_turnstile.tryLock()) return false;
  m_countMutex.lock();
  ++m_readers;
  m_turnstile.unlock();
  m_countMutex.unlock();
  return true;
}

bool ReadWriteLock::tryLockForWrite() {
  if (!m_turnstile.tryLock()) return false;
  m_countMutex.lock();
  if (m_readers == 0) {
    m_countMutex.unlock();
    return true;
  }
  m_turnstile.unlock();
  m_countMutex.unlock();
  return false;
}

void ReadWriteLock::lockFor(ELockMode mode) {
  if (mode == Read)
    lockForRead();
  else if (mode == Write)
    lockForWrite();
}

bool ReadWriteLock::tryLockFor(ELockMode mode) {
  if (mode == Read) return tryLockForRead();
  if (mode == Write) return tryLockForWrite();
  return false;
}

void ReadWriteLock::unlock() {
  m_countMutex.lock();
  if (m_readers != 0) {
    --m_readers;
    // Each leaving reader signals; the writer tests the count in its loop.
    m_noReaders.signal();
  } else {
    m_turnstile.unlock();
  }
  m_countMutex.unlock();
}

ReadWriteLocker::ReadWriteLocker(ReadWriteLock& lock, ELockMode mode, bool doLock)
    : ReadWriteLocker(&lock, mode, doLock) {}

ReadWriteLocker::ReadWriteLocker(ReadWriteLock* lock, ELockMode mode, bool doLock) : m_lock(lock), m_holds{0, 0} {
  if (doLock) this->lock(mode);
}

ReadWriteLocker::~ReadWriteLocker() {
  if (m_holds[ReadWriteLock::Read] == 0 && m_holds[ReadWriteLock::Write] == 0) return;
  unlock();
}

void ReadWriteLocker::lock(ELockMode mode) {
  if (mode != ReadWriteLock::Read && mode != ReadWriteLock::Write) return;
  m_lock->lockFor(mode);
  ++m_holds[mode];
}

void ReadWriteLocker::unlock() {
  if (m_holds[ReadWriteLock::Write] != 0)
    --m_holds[ReadWriteLock::Write];
  else
    --m_holds[ReadWriteLock::Read];
  m_lock->unlock();
}

}  // namespace zq
