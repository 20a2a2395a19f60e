// Lock classes for clients: Mutex, its scoped guard MutexLocker, and ConditionVariable.
//
// Unlike a plain lock, a non-recursive Mutex that its holder locks again raises an
// exception instead of hanging. The library's own subsystems lock with the standard
// library's primitives; these classes are for programs built on it.
#pragma once

#include <zq/Export.h>
#include <zq/internal/ReentrantSection.h>

#include <atomic>
#include <cstdint>

namespace zq {

namespace platform {
class ManualResetEvent;
}

// A lock, recursive or not, over a section that its owner can always enter again.
//
// The re-entrant section is what makes the diagnostics possible: a second lock by the holder
// gets in, and only then does the count show that it already held the mutex. The mutex does
// not record its owner. lock, tryLock and unlock may be called from any thread.
class ZQ_API Mutex {
 public:
  enum ERecursionMode { Recursive = 0, NonRecursive = 1 };

  Mutex();  // NonRecursive
  explicit Mutex(ERecursionMode mode);
  virtual ~Mutex();  // no check that the mutex is free

  // Throws RuntimeError "Nonrecursive mutex locked twice" when a NonRecursive mutex is locked
  // by its holder. The section has then been entered once more and the count not raised: the
  // holder must call unlock once more than it locked, and the count ends one below zero
  // (wrapped), so the mutex stays unusable for NonRecursive locking.
  // Inline, as these three are the cost of every client's critical section.
  void lock() {
    m_section.lock();
    const std::uint32_t count = m_lockCount.load(std::memory_order_relaxed);
    // Thrown inside the section: the holder's extra entry is deliberately not undone.
    if (m_mode == NonRecursive && count > 0) throwLockedTwice();
    m_lockCount.store(count + 1, std::memory_order_relaxed);
  }
  // False, and no change, when another thread holds the mutex or, for a NonRecursive mutex,
  // when the caller already does. Never throws.
  bool tryLock() noexcept {
    if (!m_section.try_lock()) return false;
    const std::uint32_t count = m_lockCount.load(std::memory_order_relaxed);
    if (m_mode == NonRecursive && count != 0) {
      m_section.unlock();
      return false;
    }
    m_lockCount.store(count + 1, std::memory_order_relaxed);
    return true;
  }
  // Lowers the count and leaves the section; no check that the caller holds the mutex.
  void unlock() {
    m_lockCount.store(m_lockCount.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
    m_section.unlock();
  }

  // The number of current holds, read without locking.
  unsigned int lockCount() const { return m_lockCount.load(std::memory_order_relaxed); }
  ERecursionMode mode() const { return m_mode; }
  bool recursive() const { return m_mode == Recursive; }

  // The operating system's id of the calling thread.
  static unsigned long currentThreadId();

 protected:
  typedef internal::ReentrantSection Section;
  Section* rawMutex() { return &m_section; }

 private:
  Mutex(const Mutex&);
  Mutex& operator=(const Mutex&);

  [[noreturn]] static void throwLockedTwice();

  // Changed only inside the section; atomic so that lockCount() may read it from anywhere.
  std::atomic<std::uint32_t> m_lockCount;
  ERecursionMode m_mode;
  Section m_section;
};

// Scoped holds on a Mutex, for one thread. The mutex is not owned and must outlive the
// locker; a null mutex is allowed, and then the locker only counts.
class ZQ_API MutexLocker {
 public:
  MutexLocker(Mutex& mutex, bool lock = true);
  MutexLocker(Mutex* mutex, bool lock = true);
  // Gives back every hold the locker counts.
  ~MutexLocker();

  // Locks again and counts, whatever the locker already holds.
  void relock();
  // Gives back one hold, without checking that the locker has one.
  void unlock();

  // Copies the mutex and the count as they are; what the target held is not released.
  MutexLocker& operator=(const MutexLocker& other) = default;

 private:
  Mutex* m_mutex;
  std::int32_t m_lockCount;
};

// A condition variable over a Mutex, built from counters and one manual-reset event.
//
// A signal is meant for the threads that were waiting when it was given: a thread that
// starts to wait later can't take it. Several waiters may wake for one signal, so callers
// test their condition in a loop. There is no timed wait. All operations may be called
// from any thread; signal and signalAll don't need the mutex.
class ZQ_API ConditionVariable {
 public:
  ConditionVariable();
  ~ConditionVariable();

  // The caller holds `mutex` exactly once; it is given back while waiting and taken again
  // (with lock's exception for a NonRecursive mutex held twice) before returning.
  void wait(Mutex* mutex);
  // Wakes one waiter, if more threads wait than have been released already.
  void signal();
  // Wakes every thread that waits now.
  void signalAll();

 private:
  ConditionVariable(const ConditionVariable&);
  ConditionVariable& operator=(const ConditionVariable&);

  std::int32_t m_waiters;
  internal::ReentrantSection m_section;  // guards the three counters
  std::int32_t m_released;
  std::uint32_t m_generation;
  platform::ManualResetEvent* m_event;
};

}  // namespace zq
