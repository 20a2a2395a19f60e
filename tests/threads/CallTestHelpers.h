// Helpers for the deferred-call tests: holding the call thread still, and reading or emptying
// the shared queue between tests.
#pragma once

#include <zq/threads/CallOwner.h>
#include <zq/threads/CallThread.h>

#include "tests/support/LogCapture.h"
#include "tests/support/Wait.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zq {
namespace test {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
typedef std::chrono::steady_clock Clock;

// The apply times in the queue, in queue order.
inline std::vector<Call::time_point> queuedTimes() {
  std::lock_guard<std::mutex> lock(CallOwner::getQueueMutex());
  std::vector<Call::time_point> times;
  for (const Call* call : CallOwner::getThreadQueue()) times.push_back(call->getApplyTime());
  return times;
}
inline std::size_t queueSize() { return queuedTimes().size(); }

// Runs one call now and waits until it has run and the thread has disposed of everything
// cancelled behind it, so that leftovers of earlier tests don't count.
inline void drainQueue() {
  CallOwner owner;
  std::atomic<bool> ran(false);
  owner.asyncCall([&ran] { ran = true; }, 0ns);
  ASSERT_TRUE(waitFor([&ran] { return ran && queueSize() == 0; })) << "the queue did not drain";
}

class CallTest : public ::testing::Test {
 protected:
  void SetUp() override { drainQueue(); }
  void TearDown() override { drainQueue(); }
};

// A call that holds the call thread until the gate goes out of scope, so that tests can set up
// the queue without the thread taking anything from it.
class Gate {
 public:
  Gate() {
    m_owner.asyncCall(
        [this] {
          m_entered.set_value();
          m_opened.wait();
        },
        0ns);
  }
  ~Gate() { m_open.set_value(); }  // m_owner, destroyed next, waits until the call has left
  bool waitEntered() { return m_entered.get_future().wait_for(10s) == std::future_status::ready; }

 private:
  std::promise<void> m_entered, m_open;
  std::shared_future<void> m_opened = m_open.get_future();
  CallOwner m_owner;
};

}  // namespace test
}  // namespace zq
