// Helpers for the deferred-call tests: holding the call thread still, and reading or emptying
// the shared queue between tests.
#pragma once

#include <zq/threads/CallOwner.h>

#include "tests/support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace zq {
namespace test {

inline std::size_t queueSize() {
  std::lock_guard<std::mutex> lock(CallOwner::getQueueMutex());
  return CallOwner::getThreadQueue().size();
}

// The apply times in the queue, in queue order.
inline std::vector<Call::time_point> queuedTimes() {
  std::lock_guard<std::mutex> lock(CallOwner::getQueueMutex());
  std::vector<Call::time_point> times;
  for (const Call* call : CallOwner::getThreadQueue()) times.push_back(call->getApplyTime());
  return times;
}

// Runs one call now and waits until it has run and the thread has disposed of everything
// cancelled behind it. Tests start from this, so leftovers of earlier tests don't count.
inline void drainQueue() {
  CallOwner owner;
  std::atomic<bool> ran(false);
  owner.asyncCall([&ran] { ran = true; }, std::chrono::nanoseconds(0));
  ASSERT_TRUE(waitFor([&ran] { return ran.load() && queueSize() == 0; })) << "the queue did not drain";
}

// A call that holds the call thread until released, so that tests can set up the queue
// without the thread taking anything from it. Its destructor releases it and waits until
// the thread has left it, also when a test fails half-way.
class Gate {
 public:
  Gate() {
    m_owner.asyncCall([this] { hold(); }, std::chrono::nanoseconds(0));
  }
  ~Gate() {
    release();
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_left || !m_entered; });
  }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  // Waits until the call thread is inside the gate.
  bool waitEntered() {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::seconds(10), [this] { return m_entered; });
  }
  void release() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_open = true;
    m_changed.notify_all();
  }

 private:
  void hold() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_entered = true;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return m_open; });
    m_left = true;
    m_changed.notify_all();
  }

  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_entered = false;
  bool m_open = false;
  bool m_left = false;
  CallOwner m_owner;  // last: destroyed first, while the flags still exist
};

}  // namespace test
}  // namespace zq
