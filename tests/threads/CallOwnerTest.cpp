#include <zq/threads/CallOwner.h>
#include <zq/threads/CallThread.h>

#include "tests/support/LogCapture.h"
#include "tests/support/Wait.h"
#include "tests/threads/CallTestHelpers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using zq::Call;
using zq::CallOwner;
using zq::test::Gate;
using zq::test::queuedTimes;
using zq::test::queueSize;
using zq::test::waitFor;
typedef std::chrono::steady_clock Clock;

const std::chrono::nanoseconds kNoLimit = std::chrono::nanoseconds::max();

TEST(CallTest, EmptyCallCopiesCancelAndOrdering) {
  EXPECT_THROW(Call().apply(), std::bad_function_call);

  CallOwner owner;
  int runs = 0;
  const Call::time_point t = Clock::now();
  Call call([&runs] { ++runs; }, &owner, t);
  Call copy(call);
  copy.apply();
  EXPECT_EQ(1, runs);
  EXPECT_EQ(&owner, copy.getOwner());
  EXPECT_EQ(t, copy.getApplyTime());

  call.cancel();
  EXPECT_TRUE(call.isCancelled());
  EXPECT_EQ(nullptr, call.getOwner());
  EXPECT_FALSE(copy.isCancelled()) << "a copy is not cancelled with its original";

  zq::lessCall less;
  Call later([] {}, nullptr, t + 1ns);
  EXPECT_TRUE(less(&call, &later));
  EXPECT_FALSE(less(&later, &call));
  EXPECT_FALSE(less(&call, &copy)) << "equal times are equivalent, whatever else differs";
  EXPECT_FALSE(less(&copy, &call));
  EXPECT_TRUE(less(nullptr, &call));
  EXPECT_FALSE(less(&call, nullptr));
  EXPECT_FALSE(less(nullptr, nullptr));
}

class CallOwnerTest : public ::testing::Test {
 protected:
  void SetUp() override { zq::test::drainQueue(); }
  void TearDown() override { zq::test::drainQueue(); }
};

TEST_F(CallOwnerTest, RunsInDueTimeOrderRegardlessOfQueueingOrder) {
  CallOwner owner;
  std::mutex mutex;
  std::vector<int> order;
  std::vector<std::thread::id> threads;
  auto record = [&](int n) {
    return [&, n] {
      std::lock_guard<std::mutex> lock(mutex);
      order.push_back(n);
      threads.push_back(std::this_thread::get_id());
    };
  };
  {
    Gate gate;
    ASSERT_TRUE(gate.waitEntered());
    // All due once the gate opens; queued in an order unlike their times.
    const Call::time_point base = Clock::now() - 1s;
    for (int n : {5, 1, 7, 3, 0, 6, 2, 4}) owner.asyncCall(record(n), base + n * 1ms);
  }
  // Relative delays too: 30 ms given before 10 ms.
  owner.asyncCall(record(30), 30ms);
  owner.asyncCall(record(10), 10ms);
  ASSERT_TRUE(waitFor([&] {
    std::lock_guard<std::mutex> lock(mutex);
    return order.size() == 10;
  }));
  std::lock_guard<std::mutex> lock(mutex);
  EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 10, 30}), order);
  EXPECT_NE(std::this_thread::get_id(), threads.front());
  EXPECT_EQ(threads.size(), static_cast<std::size_t>(std::count(threads.begin(), threads.end(), threads.front())))
      << "all calls run on the one call thread";
}

TEST_F(CallOwnerTest, SecondCallWithTheSameTimeIsRefusedAndNeverRuns) {
  std::atomic<int> first(0), second(0), appended(0);
  {
    CallOwner owner;
    {
      Gate gate;
      ASSERT_TRUE(gate.waitEntered());
      const Call::time_point t = Clock::now();
      owner.asyncCall([&] { ++first; }, t);
      const std::size_t size = queueSize();
      owner.asyncCall([&] { ++second; }, t);
      EXPECT_EQ(size, queueSize()) << "the queue is ordered by time alone";
      // Zero spacing behind the last call lands on the same time.
      owner.appendAsyncCall([&] { ++appended; }, 0ns, kNoLimit);
      EXPECT_EQ(size, queueSize());
    }
    ASSERT_TRUE(waitFor([&] { return first == 1; }));
    zq::test::drainQueue();
  }
  EXPECT_EQ(1, first.load());
  EXPECT_EQ(0, second.load());
  EXPECT_EQ(0, appended.load());
}

TEST_F(CallOwnerTest, AppendPlacesBehindTheLastCallOrWithinTheLimit) {
  CallOwner owner;
  Gate gate;
  ASSERT_TRUE(gate.waitEntered());
  ASSERT_EQ(0u, queueSize());

  // Empty queue: the spacing counts from now.
  Call::time_point before = Clock::now();
  owner.appendAsyncCall([] {}, 1h, kNoLimit);
  Call::time_point after = Clock::now();
  std::vector<Call::time_point> times = queuedTimes();
  ASSERT_EQ(1u, times.size());
  EXPECT_GE(times[0], before + 1h);
  EXPECT_LE(times[0], after + 1h);
  const Call::time_point first = times[0];

  // Behind the last call, however far off it is.
  owner.appendAsyncCall([] {}, 10ms, kNoLimit);
  times = queuedTimes();
  ASSERT_EQ(2u, times.size());
  EXPECT_EQ(first + 10ms, times[1]);

  // A limit that takes effect puts the call in front.
  before = Clock::now();
  owner.appendAsyncCall([] {}, 10ms, 5ms);
  after = Clock::now();
  times = queuedTimes();
  ASSERT_EQ(3u, times.size());
  EXPECT_GE(times[0], before + 5ms);
  EXPECT_LE(times[0], after + 5ms);

  // A limit that doesn't take effect changes nothing.
  owner.appendAsyncCall([] {}, 10ms, 2h);
  EXPECT_EQ(first + 20ms, queuedTimes().back());
}

TEST_F(CallOwnerTest, CancelKeepsTheOwnerOpenUnlessClosed) {
  CallOwner owner;
  std::atomic<int> far(0), afterCancel(0), afterClose(0);
  owner.asyncCall([&] { ++far; }, 1h);
  owner.cancelCalls(false);
  owner.asyncCall([&] { ++afterCancel; }, 0ns);
  ASSERT_TRUE(waitFor([&] { return afterCancel == 1; })) << "cancelCalls(false) leaves the owner open";

  owner.cancelCalls(true);
  const std::size_t size = queueSize();
  owner.asyncCall([&] { ++afterClose; }, 0ns);
  owner.appendAsyncCall([&] { ++afterClose; }, 0ns, kNoLimit);
  EXPECT_EQ(size, queueSize()) << "a closed owner queues nothing";
  owner.cancelCalls(false);  // closed for good: does not reopen
  owner.asyncCall([&] { ++afterClose; }, 0ns);
  zq::test::drainQueue();
  EXPECT_EQ(0, far.load());
  EXPECT_EQ(0, afterClose.load());
}

TEST_F(CallOwnerTest, CancelCallsWaitsForTheOwnersRunningCall) {
  CallOwner owner;
  std::atomic<bool> started(false), release(false), finished(false);
  std::atomic<bool> finishedWhenCancelReturned(false), laterRan(false);
  owner.asyncCall(
      [&] {
        started = true;
        while (!release) std::this_thread::sleep_for(1ms);
        finished = true;
      },
      0ns);
  owner.asyncCall([&] { laterRan = true; }, 10min);
  ASSERT_TRUE(waitFor([&] { return started.load(); }));

  std::thread canceller([&] {
    owner.cancelCalls(false);
    finishedWhenCancelReturned = finished.load();
  });
  // Give a cancelCalls that doesn't wait the chance to return early.
  std::this_thread::sleep_for(100ms);
  release = true;
  canceller.join();
  EXPECT_TRUE(finishedWhenCancelReturned) << "cancelCalls returned while the owner's call was running";
  zq::test::drainQueue();
  EXPECT_FALSE(laterRan) << "a cancelled call ran";
}

// Owners are destroyed from several threads while their calls fall due; a call that runs after
// its owner's destructor has returned is a fault.
TEST_F(CallOwnerTest, NoCallOfADestroyedOwnerEverRuns) {
  std::atomic<int> ranLate(0), ran(0);
  auto worker = [&](int seed) {
    for (int i = 0; i < 40; ++i) {
      auto owner = std::make_unique<CallOwner>();
      auto destroyed = std::make_shared<std::atomic<bool>>(false);
      for (int k = 0; k < 4; ++k) {
        owner->asyncCall(
            [&, destroyed] {
              ++ran;
              if (*destroyed) ++ranLate;
              std::this_thread::sleep_for(100us);
            },
            std::chrono::microseconds((seed * 7 + i * 13 + k * 250) % 1500));
      }
      std::this_thread::sleep_for(std::chrono::microseconds(200 * (i % 7)));
      owner.reset();
      *destroyed = true;
    }
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) threads.emplace_back(worker, t);
  for (std::thread& t : threads) t.join();
  zq::test::drainQueue();
  EXPECT_EQ(0, ranLate.load());
  EXPECT_GT(ran.load(), 0) << "the test should let some calls run before their owners go";
}

TEST_F(CallOwnerTest, WarnsAtEveryTenthQueueSizeFromAHundred) {
  CallOwner owner;
  zq::test::LogCapture log;
  Gate gate;
  ASSERT_TRUE(gate.waitEntered());
  ASSERT_EQ(0u, queueSize());
  const Call::time_point base = Clock::now() + 1h;
  int queued = 0;
  auto queue = [&](int count) {
    for (int i = 0; i < count; ++i) owner.asyncCall([] {}, base + std::chrono::nanoseconds(queued++));
  };
  const std::string warning = "calls in queue";
  queue(99);
  EXPECT_TRUE(log.linesWith(warning).empty());
  queue(1);
  ASSERT_EQ(1u, log.linesWith(warning).size());
  EXPECT_NE(std::string::npos, log.linesWith(warning)[0].find("WARNING  [zq::CallOwner::asyncCall] 100 calls in queue"))
      << log.linesWith(warning)[0];
  queue(9);
  EXPECT_EQ(1u, log.linesWith(warning).size());
  queue(1);
  ASSERT_EQ(2u, log.linesWith(warning).size());
  EXPECT_NE(std::string::npos, log.linesWith(warning)[1].find("] 110 calls in queue"));
}

// The thread deletes calls cancelled this way without telling their owners; the owners must
// still be able to cancel and be destroyed afterwards, and go on queueing.
TEST_F(CallOwnerTest, MakeThreadUnemployedCancelsEverythingAndOwnersLiveOn) {
  std::atomic<int> cancelledRan(0), laterRan(0);
  auto a = std::make_unique<CallOwner>();
  auto b = std::make_unique<CallOwner>();
  {
    Gate gate;  // keeps the thread from turning while we look at the queue
    ASSERT_TRUE(gate.waitEntered());
    for (int i = 1; i <= 3; ++i) a->asyncCall([&] { ++cancelledRan; }, std::chrono::minutes(i));
    b->asyncCall([&] { ++cancelledRan; }, 0ns);
    const std::size_t size = queueSize();
    zq::test::LogCapture log;
    CallOwner::makeThreadUnemployed();
    const std::vector<std::string> bodies = log.bodies();
    ASSERT_EQ(1u, bodies.size());
    EXPECT_EQ("[zq::CallOwner::makeThreadUnemployed] Cancel 1 queued calls", bodies[0]);
    EXPECT_EQ(std::string::npos, log.lines()[0].find("WARNING")) << "a plain message";
    EXPECT_EQ(size, queueSize()) << "cancelled calls stay queued until they reach the head";
  }
  zq::test::drainQueue();  // the thread deletes every cancelled call now

  a->cancelCalls(false);
  a->asyncCall([&] { ++laterRan; }, 0ns);
  ASSERT_TRUE(waitFor([&] { return laterRan == 1; })) << "the owner stays open";
  a.reset();
  b.reset();
  EXPECT_EQ(0, cancelledRan.load());
}

}  // namespace
