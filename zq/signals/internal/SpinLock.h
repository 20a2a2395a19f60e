// A lock held for a few instructions at a time, as a rule by an emitting thread and a run
// loop's thread in turn: a sleeping mutex would put one of them to sleep for a few
// instructions of the other. Library-private.
#pragma once

#include <atomic>
#include <thread>

namespace zq {
namespace internal {

class SpinLock {
 public:
  void lock() {
    for (int spins = 0; m_locked.exchange(true, std::memory_order_acquire);) {
      while (m_locked.load(std::memory_order_relaxed))
        if (++spins % 64 == 0) std::this_thread::yield();  // the holder may not be running
    }
  }
  void unlock() { m_locked.store(false, std::memory_order_release); }

 private:
  std::atomic<bool> m_locked{false};
};

}  // namespace internal
}  // namespace zq
