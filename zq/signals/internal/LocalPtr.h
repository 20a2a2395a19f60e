// Guarded pointer operations for pointers that only the calling thread can reach, such as the
// frames of its call stack: they take no mutex, which is all that tells them from assignment,
// reset(nullptr) and swap, and copies and drops of all but a record's last pointer take no
// lock of the record either.
#pragma once

#include <zq/signals/GuardedPtr.h>
#include <zq/signals/internal/SharedCount.h>

#include <atomic>
#include <cstdint>

namespace zq {
class SignalPublisher;
namespace internal {

struct LocalPtr {
  // `to` = `from`. `from` is read without its lock, so its record must stay alive meanwhile:
  // `from` is the caller's own, or a publisher's pointer to itself, whose record lives as long
  // as the publisher.
  template <class T>
  static void assign(GuardedPtr<T>& to, const GuardedPtr<T>& from) {
    SharedCount* counter = from.getCounter();
    if (to.getCounter() == nullptr && counter != nullptr) {
      counter->m_pointerCount.fetch_add(1, std::memory_order_relaxed);  // `from` holds a count
      to.setCounterNoLock(counter);
    } else {
      to.SharedCountPtr::resetNoLock(counter);
    }
    to.m_object.store(from.m_object.load(std::memory_order_relaxed), std::memory_order_relaxed);
  }

  // `to` (null) = `from` with a count the caller has already taken.
  template <class T>
  static void adopt(GuardedPtr<T>& to, const GuardedPtr<T>& from) {
    to.setCounterNoLock(from.getCounter());
    to.m_object.store(from.m_object.load(std::memory_order_relaxed), std::memory_order_relaxed);
  }
  // Empties `ptr` without letting go of its count, which the caller takes over.
  template <class T>
  static void forget(GuardedPtr<T>& ptr) {
    ptr.setCounterNoLock(nullptr);
    ptr.m_object.store(nullptr, std::memory_order_relaxed);
  }

  template <class T>
  static void reset(GuardedPtr<T>& ptr) {
    SharedCount* counter = ptr.getCounter();
    if (counter != nullptr && dropPointerAboveZero(*counter))
      ptr.setCounterNoLock(nullptr);
    else
      ptr.SharedCountPtr::resetNoLock(nullptr);
    ptr.m_object.store(nullptr, std::memory_order_relaxed);
  }

  // Plain loads and stores: an exchange would be a locked instruction, which waits for every
  // store before it, and no other thread can see either pointer.
  template <class T>
  static void swap(GuardedPtr<T>& a, GuardedPtr<T>& b) {
    SharedCount* counter = a.getCounter();
    a.setCounterNoLock(b.getCounter());
    b.setCounterNoLock(counter);
    T* object = a.get();
    a.m_object.store(b.get(), std::memory_order_relaxed);
    b.m_object.store(object, std::memory_order_relaxed);
  }

  // `n` counts more, or fewer, for a holder that has a count on `record` beside them.
  static void addPointers(SharedCount& record, std::uint64_t n) {
    record.m_pointerCount.fetch_add(n, std::memory_order_relaxed);
  }
  static void dropPointers(SharedCount& record, std::uint64_t n) {
    record.m_pointerCount.fetch_sub(n, std::memory_order_acq_rel);
  }
  // Lets go of one count on `record`, the holder's last: frees the record if it was its last.
  static void dropPointer(SharedCount* record) {
    GuardedPtr<SignalPublisher> last;
    last.setCounterNoLock(record);
  }

  // The pointer count one up or down where it stays above zero, which decides nothing and
  // needs no lock; false, with nothing changed, where it would not.
  static bool addPointerAboveZero(SharedCount& record) {
    std::uint64_t count = record.m_pointerCount.load(std::memory_order_relaxed);
    while (count >= 1)
      if (record.m_pointerCount.compare_exchange_weak(count, count + 1, std::memory_order_acq_rel,
                                                      std::memory_order_relaxed))
        return true;
    return false;
  }
  static bool dropPointerAboveZero(SharedCount& record) {
    std::uint64_t count = record.m_pointerCount.load(std::memory_order_relaxed);
    while (count > 1)
      if (record.m_pointerCount.compare_exchange_weak(count, count - 1, std::memory_order_acq_rel,
                                                      std::memory_order_relaxed))
        return true;
    return false;
  }
};

}  // namespace internal
}  // namespace zq
