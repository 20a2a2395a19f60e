#include <zq/threads/Mutex.h>

#include <zq/foundation/Exception.h>
#include <zq/platform/Threads.h>

#include <thread>

namespace zq {

namespace {
const char* const k_lockedTwice = "Nonrecursive mutex locked twice";
}  // namespace

Mutex::Mutex() : Mutex(NonRecursive) {}

Mutex::Mutex(ERecursionMode mode) : m_lockCount(0), m_mode(mode) {}

Mutex::~Mutex() {}

void Mutex::throwLockedTwice() { throw RuntimeError(k_lockedTwice); }

unsigned long Mutex::currentThreadId() { return platform::currentThreadId(); }

MutexLocker::MutexLocker(Mutex& mutex, bool lock) : MutexLocker(&mutex, lock) {}

MutexLocker::MutexLocker(Mutex* mutex, bool lock) : m_mutex(mutex), m_lockCount(0) {
  if (lock) relock();
}

MutexLocker::~MutexLocker() {
  while (m_lockCount > 0) unlock();
}

void MutexLocker::relock() {
  if (m_mutex) m_mutex->lock();
  ++m_lockCount;
}

void MutexLocker::unlock() {
  --m_lockCount;
  if (m_mutex) m_mutex->unlock();
}

ConditionVariable::ConditionVariable()
    : m_waiters(0), m_released(0), m_generation(0), m_event(new platform::ManualResetEvent) {}

ConditionVariable::~ConditionVariable() { delete m_event; }

void ConditionVariable::wait(Mutex* mutex) {
  std::uint32_t generation;
  {
    std::lock_guard<internal::ReentrantSection> lock(m_section);
    ++m_waiters;
    generation = m_generation;
  }
  mutex->unlock();
  for (;;) {
    m_event->wait();
    {
      std::lock_guard<internal::ReentrantSection> lock(m_section);
      if (m_released > 0 && m_generation != generation) break;
    }
    // A thread that came after the signal has the current generation and keeps waiting;
    // while the event stays set for the others it spins here, giving them the processor.
    std::this_thread::yield();
  }
  mutex->lock();
  std::lock_guard<internal::ReentrantSection> lock(m_section);
  --m_waiters;
  // Reset under the section: a signal given between the last release and an unguarded reset
  // would be wiped out, and its waiter would sleep on with its release granted.
  if (--m_released == 0) m_event->reset();
}

void ConditionVariable::signal() {
  std::lock_guard<internal::ReentrantSection> lock(m_section);
  if (m_waiters > m_released) {
    m_event->set();
    ++m_released;
    ++m_generation;
  }
}

void ConditionVariable::signalAll() {
  std::lock_guard<internal::ReentrantSection> lock(m_section);
  if (m_waiters > 0) {
    m_event->set();
    m_released = m_waiters;
    ++m_generation;
  }
}

}  // namespace zq
