#include "tests/threads/CallTestHelpers.h"

#include <functional>
#include <memory>

namespace zq::test {
namespace {

const std::chrono::nanoseconds kNoLimit = std::chrono::nanoseconds::max();

TEST_F(CallTest, RunsInDueTimeOrderRegardlessOfQueueingOrder) {
  CallOwner owner;
  std::vector<int> order;  // written by the call thread only, read after `done` says so
  std::atomic<std::size_t> done(0);
  auto record = [&](int n) { return [&, n] { order.push_back(n), ++done; }; };
  {
    Gate gate;
    ASSERT_TRUE(gate.waitEntered());
    const Call::time_point base = Clock::now() - 1s;  // all due once the gate opens
    for (int n : {5, 1, 7, 3, 0, 6, 2, 4}) owner.asyncCall(record(n), base + n * 1ms);
  }
  owner.asyncCall(record(30), 30ms);
  owner.asyncCall(record(10), 10ms);
  ASSERT_TRUE(waitFor([&] { return done == 10; }));
  EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 10, 30}), order);
}

TEST_F(CallTest, AppendPlacesBehindTheLastCallOrWithinTheLimitAndTheSameTimeIsRefused) {
  CallOwner owner;
  Gate gate;
  ASSERT_TRUE(gate.waitEntered());
  // Appends one call; its apply time must lie in [before + expected, after + expected].
  auto appendAt = [&](std::chrono::nanoseconds delay, std::chrono::nanoseconds limit, std::size_t index,
                      std::chrono::nanoseconds expected) {
    const Call::time_point before = Clock::now();
    owner.appendAsyncCall([] {}, delay, limit);
    const Call::time_point after = Clock::now(), t = queuedTimes().at(index);
    EXPECT_TRUE(t >= before + expected && t <= after + expected) << "call " << index;
    return t;
  };
  const Call::time_point first = appendAt(1h, kNoLimit, 0, 1h);  // empty queue: from now
  owner.appendAsyncCall([] {}, 10ms, kNoLimit);
  EXPECT_EQ(first + 10ms, queuedTimes().at(1)) << "behind the last call, however far off";
  appendAt(10ms, 5ms, 0, 5ms);  // a limit that takes effect puts the call in front
  owner.appendAsyncCall([] {}, 10ms, 2h);
  EXPECT_EQ(first + 20ms, queuedTimes().back()) << "a limit not reached changes nothing";

  auto captured = std::make_shared<int>(0);
  const std::weak_ptr<int> watch = captured;
  owner.asyncCall([captured] {}, first);
  owner.appendAsyncCall([captured] {}, 0ns, kNoLimit);  // zero spacing: the last call's time again
  captured.reset();
  EXPECT_EQ(4u, queueSize()) << "a second call with the same time is refused";
  EXPECT_TRUE(watch.expired()) << "a refused call is freed at once";
}

// A refused call used to stay allocated for good, with whatever its function held.
TEST_F(CallTest, ARefusedCallNeverRunsAndIsFreedAtOnce) {
  CallOwner owner;
  const Call::time_point at = Clock::now() + 1h;
  owner.asyncCall([] {}, at);
  auto held = std::make_shared<int>(0);
  std::atomic<bool> ran(false);
  owner.asyncCall([held, &ran] { ran = true; }, at);
  EXPECT_EQ(1, held.use_count()) << "the refused call's function was not freed";
  EXPECT_EQ(1u, queueSize());
  owner.cancelCalls(false);  // must not touch the freed call
  owner.asyncCall([&ran] { ran = true; }, 0ns);
  ASSERT_TRUE(waitFor([&] { return ran.load(); }));
}

TEST_F(CallTest, CancelKeepsTheOwnerOpenUnlessClosedForGood) {
  CallOwner owner;
  std::atomic<int> far(0), afterCancel(0), afterClose(0);
  owner.asyncCall([&] { ++far; }, 1h);
  owner.cancelCalls(false);
  owner.asyncCall([&] { ++afterCancel; }, 0ns);
  ASSERT_TRUE(waitFor([&] { return afterCancel == 1; }));

  owner.cancelCalls(true);
  owner.asyncCall([&] { ++afterClose; }, 0ns);
  owner.appendAsyncCall([&] { ++afterClose; }, 0ns, kNoLimit);
  owner.cancelCalls(false);  // does not reopen
  owner.asyncCall([&] { ++afterClose; }, 0ns);
  drainQueue();
  EXPECT_EQ(0, far + afterClose);
}

TEST_F(CallTest, CancelCallsWaitsForTheOwnersRunningCall) {
  CallOwner owner;
  std::atomic<bool> started(false), release(false), finished(false);
  owner.asyncCall(
      [&] {
        started = true;
        waitFor([&] { return release.load(); });
        finished = true;
      },
      0ns);
  ASSERT_TRUE(waitFor([&] { return started.load(); }));
  std::thread releaser([&] {
    std::this_thread::sleep_for(100ms);  // time for a cancelCalls that doesn't wait to return
    release = true;
  });
  owner.cancelCalls(false);
  EXPECT_TRUE(finished) << "cancelCalls returned while the owner's call was running";
  releaser.join();
}

// Owners are destroyed from several threads while their calls fall due.
TEST_F(CallTest, NoCallOfADestroyedOwnerEverRuns) {
  std::atomic<int> ranLate(0), ran(0);
  auto worker = [&](int seed) {
    for (int i = 0; i < 40; ++i) {
      auto owner = std::make_unique<CallOwner>();
      auto destroyed = std::make_shared<std::atomic<bool>>(false);
      for (int k = 0; k < 4; ++k)
        owner->asyncCall(
            [&, destroyed] {
              ++ran;
              if (*destroyed) ++ranLate;
              std::this_thread::sleep_for(100us);
            },
            std::chrono::microseconds((seed * 7 + i * 13 + k * 250) % 1500));
      std::this_thread::sleep_for(std::chrono::microseconds(200 * (i % 7)));
      owner.reset();
      *destroyed = true;
    }
  };
  std::thread a(worker, 0), b(worker, 1), c(worker, 2);
  a.join(), b.join(), c.join();
  drainQueue();
  EXPECT_EQ(0, ranLate.load());
  EXPECT_GT(ran.load(), 0) << "some calls should run before their owners go";
}

// Calls cancelled this way are deleted without telling their owners; the owners must still be
// able to cancel, queue and be destroyed afterwards.
TEST_F(CallTest, WarnsFromAHundredQueuedAndUnemploymentCancelsAllWhileOwnersLiveOn) {
  std::atomic<int> cancelledRan(0), laterRan(0);
  auto a = std::make_unique<CallOwner>(), b = std::make_unique<CallOwner>();
  {
    Gate gate;
    ASSERT_TRUE(gate.waitEntered());
    LogCapture log;
    const Call::time_point base = Clock::now() + 1h;
    for (int i = 0; i < 111; ++i) a->asyncCall([&] { ++cancelledRan; }, base + i * 1ns);
    EXPECT_THAT(log.linesWith("calls in queue"),
                ElementsAre(HasSubstr("WARNING  [zq::CallOwner::asyncCall] 100 calls in queue"),
                            HasSubstr("] 110 calls in queue")));
    b->asyncCall([&] { ++cancelledRan; }, 0ns);
    log.clear();
    CallOwner::makeThreadUnemployed();
    EXPECT_THAT(log.lines(),
                ElementsAre(HasSubstr("LOG      [zq::CallOwner::makeThreadUnemployed] Cancel 1 queued calls")));
    EXPECT_EQ(112u, queueSize()) << "cancelled calls stay queued until they reach the head";
  }
  drainQueue();
  a->cancelCalls(false);
  a->asyncCall([&] { ++laterRan; }, 0ns);
  ASSERT_TRUE(waitFor([&] { return laterRan == 1; }));
  a.reset(), b.reset();
  EXPECT_EQ(0, cancelledRan.load());
}

}  // namespace
}  // namespace zq::test
