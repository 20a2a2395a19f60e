#include <zq/signals/GuardedPtr.h>

#include <zq/signals/internal/SharedCount.h>

#include <zq/signals/internal/LocalPtr.h>
#include <zq/signals/internal/Sanitizers.h>

namespace zq {

// ---- SharedCount ------------------------------------------------------------------------

SharedCount::SharedCount() : m_ownerCount(1), m_pointerCount(0), m_destroyed(false) {}

SharedCount::~SharedCount() { internal::forgetMutex(&m_mutex); }

namespace {
// The count after adding `delta`, saturating at zero.
std::uint64_t added(std::uint64_t count, int delta) {
  const std::uint64_t magnitude = static_cast<std::uint64_t>(-static_cast<std::int64_t>(delta));
  return delta < 1 && magnitude > count ? 0 : count + static_cast<std::uint64_t>(static_cast<std::int64_t>(delta));
}
}  // namespace

bool SharedCount::changeCount(int delta, bool owner) {
  // A pointer count that stays above zero cannot make both counts zero, so copies and drops
  // of all but the last pointer need no lock. Reaching zero, or leaving it, is decided under
  // m_mutex with the owner count.
  if (!owner && ((delta == 1 && internal::LocalPtr::addPointerAboveZero(*this)) ||
                 (delta == -1 && internal::LocalPtr::dropPointerAboveZero(*this))))
    return false;
  std::lock_guard<std::mutex> lock(m_mutex);
  if (owner) {
    m_ownerCount = added(m_ownerCount, delta);
    if (delta < 0 && !m_destroyed.load(std::memory_order_relaxed)) m_destroyed.store(true, std::memory_order_relaxed);
  } else {
    std::uint64_t count = m_pointerCount.load(std::memory_order_relaxed);
    while (!m_pointerCount.compare_exchange_weak(count, added(count, delta), std::memory_order_acq_rel,
                                                 std::memory_order_relaxed)) {
    }
  }
  return m_ownerCount == 0 && m_pointerCount.load(std::memory_order_acquire) == 0;
}

std::uint64_t SharedCount::ownerCount() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_ownerCount;
}

std::uint64_t SharedCount::pointerCount() const { return m_pointerCount.load(std::memory_order_acquire); }

// ---- SharedCountPtr ---------------------------------------------------------------------

SharedCountPtr::SharedCountPtr() : m_counter(nullptr) {}

SharedCountPtr::SharedCountPtr(SharedCount* counter) : m_counter(nullptr) {
  if (counter != nullptr) {
    counter->changeCount(1, false);
    m_counter.store(counter, std::memory_order_relaxed);
  }
}

SharedCountPtr::SharedCountPtr(const SharedCountPtr& other) : m_counter(nullptr) {
  std::lock_guard<std::mutex> lock(other.m_mutex);
  SharedCount* counter = other.getCounter();
  if (counter != nullptr) {
    counter->changeCount(1, false);
    m_counter.store(counter, std::memory_order_relaxed);
  }
}

SharedCountPtr::SharedCountPtr(const SharedCountPtr* other)
    : SharedCountPtr(other != nullptr ? *other : SharedCountPtr()) {}

SharedCountPtr& SharedCountPtr::operator=(const SharedCountPtr& other) {
  if (&other == this) return *this;
  std::scoped_lock lock(m_mutex, other.m_mutex);  // both at once: crosswise assignments can't deadlock
  resetNoLock(other.getCounter());
  return *this;
}

// Letting go of a record frees memory and ends a lock's use; neither throws in a working
// program, and a destructor that did would end it anyway.
// NOLINTNEXTLINE(bugprone-exception-escape)
SharedCountPtr::~SharedCountPtr() {
  // Not reset(): the derived part is gone, only the record needs letting go, and nobody may
  // use a pointer that is being destroyed, so its own mutex need not be taken.
  SharedCountPtr::resetNoLock(nullptr);
  internal::forgetMutex(&m_mutex);
}

void SharedCountPtr::reset(SharedCount* counter) {
  std::lock_guard<std::mutex> lock(m_mutex);
  resetNoLock(counter);
}

void SharedCountPtr::resetNoLock(SharedCount* counter) {
  SharedCount* old = getCounter();
  if (counter == old) return;
  if (counter != nullptr) counter->changeCount(1, false);
  if (old != nullptr && old->changeCount(-1, false)) {
    // The last reference: wait for every guard still holding the record, then free it.
    old->objectLock().lock();
    old->objectLock().unlock();
    delete old;
  }
  m_counter.store(counter, std::memory_order_relaxed);
}

void SharedCountPtr::markDestroyed() {
  std::lock_guard<std::mutex> lock(m_mutex);
  SharedCount* counter = getCounter();
  if (counter != nullptr && !counter->isDestroyed()) counter->changeCount(-1, true);
}

SharedCount* SharedCountPtr::newRecord() { return new SharedCount(); }

// ---- SharedCountPtrGuard ----------------------------------------------------------------

namespace {
internal::ObjectLock s_emptyLock;

// The record is read without the pointer's mutex: the source must keep its reference while
// the guard is being built.
internal::ObjectLock& objectLockOf(const SharedCountPtr& ptr) {
  SharedCount* counter = ptr.getCounter();
  return counter != nullptr ? counter->objectLock() : s_emptyLock;
}
}  // namespace

internal::ObjectLock& internal::emptyObjectLock() { return s_emptyLock; }

SharedCountPtrGuard::SharedHold::SharedHold(const SharedCountPtr& ptr) : m_lock(&objectLockOf(ptr)) {
  m_lock->lock_shared();
}

// Unlocking a lock this object holds can't fail but in a broken program.
// NOLINTNEXTLINE(bugprone-exception-escape)
SharedCountPtrGuard::SharedHold::~SharedHold() {
  if (m_lock != nullptr) m_lock->unlock_shared();
}

SharedCountPtrGuard::SharedCountPtrGuard(const SharedCountPtr& ptr) : m_lock(ptr), m_ptr(ptr) {
  SharedCount* counter = m_ptr.getCounter();
  if (counter != nullptr && counter->isDestroyed()) m_ptr.reset(nullptr);
}

SharedCountPtrGuard::SharedCountPtrGuard(const SharedCountPtrGuard&) {}

// m_ptr lets go of the record first, then m_lock releases the shared lock.
SharedCountPtrGuard::~SharedCountPtrGuard() {}

}  // namespace zq
