// The re-entrant section under zq::Mutex and each signal publisher's lock: one lock that
// both subsystems share, so it lives in neither. Not part of the interface; reached by
// classes derived from Mutex through rawMutex().
#pragma once

#include <zq/Export.h>

#include <atomic>

namespace zq {
namespace internal {

// A lock that its owner can enter again and must leave as often as it entered. Lockable in
// the standard library's sense (lock, try_lock, unlock). Uncontended, entering and leaving
// cost one atomic exchange each and no call; a contended thread sleeps in the kernel.
class ZQ_API ReentrantSection {
 public:
  ReentrantSection() = default;
  ReentrantSection(const ReentrantSection&) = delete;
  ReentrantSection& operator=(const ReentrantSection&) = delete;

  void lock() {
    if (reentered()) return;
    int expected = 0;
    if (!m_state.compare_exchange_strong(expected, 1, std::memory_order_acquire)) enterContended();
    becomeOwner();
  }
  bool try_lock() noexcept {
    if (reentered()) return true;
    int expected = 0;
    if (!m_state.compare_exchange_strong(expected, 1, std::memory_order_acquire)) return false;
    becomeOwner();
    return true;
  }
  // Whether the calling thread is inside.
  bool heldByCaller() const { return m_owner.load(std::memory_order_relaxed) == self(); }
  // Leaves once; by a thread that isn't inside, undefined.
  void unlock() {
    if (--m_depth != 0) return;
    m_owner.store(nullptr, std::memory_order_relaxed);
    if (m_state.exchange(0, std::memory_order_release) == 2) wakeOne();
  }

 private:
  // The thread's own control block: unique among live threads and free to read.
  static const void* self() { return __builtin_thread_pointer(); }
  // Only the owner ever finds itself in m_owner, so a relaxed read tells re-entry.
  bool reentered() {
    if (m_owner.load(std::memory_order_relaxed) != self()) return false;
    ++m_depth;
    return true;
  }
  void becomeOwner() {
    m_owner.store(self(), std::memory_order_relaxed);
    m_depth = 1;
  }
  void enterContended();
  void wakeOne();

  std::atomic<int> m_state{0};  // 0 free, 1 held, 2 held and someone may sleep on it
  std::atomic<const void*> m_owner{nullptr};
  unsigned int m_depth = 0;  // the owner's entries; touched by the owner only
};

}  // namespace internal
}  // namespace zq
