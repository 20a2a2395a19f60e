// Queued frames on a loop with a frame queue (as the default run loop has), delivered by one
// handler per gathering, and on a client's loop, one handler each: in both, each frame arrives
// as its own emission, in order, and stopping, throwing, disconnecting and ending the loop
// part-way leave the rest as single handlers would.
#include <zq/signals/RunLoop.h>
#include <zq/signals/internal/FrameQueue.h>

#include "tests/signals/Station.h"
#include "tests/support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using zq::SignalPublisher;
using zq::test::Station;

// What a slot saw of its emission.
struct Seen {
  const void* publisher;
  std::string signal;
  std::string name;
  int value;
  zq::ConnectionType type;
  std::size_t depth;
};

// The loops of the cases below gather their frames when the parameter says so.
class QueuedFramesTest : public ::testing::TestWithParam<bool> {
 protected:
  boost::asio::io_service* prepared(boost::asio::io_service* loop) const {
    if (GetParam()) zq::internal::FrameQueue::of(*loop);
    return loop;
  }
};

struct Recorder {
  std::vector<Seen> seen;
  std::function<void(const Seen&)> after;  // runs after each record
  auto slot(const char* tag) {
    return [this, tag](const std::string& name, int value) {
      seen.push_back(Seen{SignalPublisher::currentPublisher().get(), SignalPublisher::currentSignal(), tag + name,
                          value, SignalPublisher::currentSignalType(), SignalPublisher::callStack().size()});
      if (after) after(seen.back());
    };
  }
};

TEST_P(QueuedFramesTest, FramesArriveInOrderEachWithItsOwnPublisherConnectionAndArguments) {
  Station first, second;
  zq::RunLoop loop;
  prepared(loop.service());
  Recorder recorder;
  first.connect(Station::reading, recorder.slot("a:"), zq::Queued, loop.service());
  first.connect(Station::reading, recorder.slot("b:"), zq::Queued, loop.service());
  second.connect(Station::reading, recorder.slot("c:"), zq::Queued, loop.service());
  auto shared = zq::makeArguments(std::string("kept"), -1);
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(2, first.emit(Station::reading, "x", i));
    if (i % 7 == 0) {
      EXPECT_EQ(1, second.emitSignal("reading", shared));
    }
  }
  EXPECT_EQ(9, shared.use_count()) << "each waiting frame holds the arguments";
  recorder.after = [&](const Seen&) {
    if (recorder.seen.size() == 108) loop.stop();
  };
  loop.run();

  ASSERT_EQ(108u, recorder.seen.size());
  std::size_t at = 0;
  for (int i = 0; i < 50; ++i) {
    for (const char* tag : {"a:x", "b:x"}) {
      const Seen& s = recorder.seen[at++];
      EXPECT_EQ(&first, s.publisher);
      EXPECT_EQ(tag, s.name);
      EXPECT_EQ(i, s.value);
    }
    if (i % 7 == 0) {
      const Seen& s = recorder.seen[at++];
      EXPECT_EQ(&second, s.publisher);
      EXPECT_EQ("c:kept", s.name);
    }
  }
  for (const Seen& s : recorder.seen) {
    EXPECT_EQ("reading", s.signal);
    EXPECT_EQ(zq::Queued, s.type);
    EXPECT_EQ(1u, s.depth) << "one frame on the loop's stack per delivery";
  }
  EXPECT_EQ(1, shared.use_count());
  EXPECT_TRUE(SignalPublisher::callStack().empty());
}

struct LoopProbe : zq::ConnectionImplCpp {
  LoopProbe(const void* receiver, boost::asio::io_service* loop)
      : zq::ConnectionImplCpp(receiver, "probe", zq::Queued, loop) {}
  void call_slot(std::shared_ptr<zq::ArgumentVector>) override { body(); }
  std::function<void()> body;
};

// A connection that its owner let go of lives while frames name it, and no longer.
TEST_P(QueuedFramesTest, ADisconnectPartWayStopsTheRestAndTheConnectionEndsWithItsLastFrame) {
  Station station;
  zq::RunLoop loop;
  prepared(loop.service());
  int calls = 0;
  auto probe = std::make_shared<LoopProbe>(&calls, loop.service());
  probe->body = [&] {
    if (++calls == 3) station.disconnect("tick", &calls, std::string());
  };
  std::weak_ptr<zq::ConnectionImpl> watched = probe;
  station.connect("tick", probe, 1);
  zq::ConnectionImplCpp* plain = probe.get();
  probe.reset();
  for (int i = 0; i < 10; ++i) station.emit(Station::tick);
  EXPECT_EQ(zq::Queued, plain->type());
  std::atomic<bool> done(false);
  loop.service()->post([&] {
    done = true;
    loop.stop();
  });
  loop.run();
  EXPECT_TRUE(done.load());
  EXPECT_EQ(3, calls) << "frames behind the disconnect call nothing";
  EXPECT_TRUE(watched.expired()) << "the last frame let go of the connection";
}

TEST_P(QueuedFramesTest, AStopPartWayLeavesTheRestForTheNextRunAndAnEndedLoopDropsThem) {
  Station station;
  auto loop = std::make_unique<zq::RunLoop>();
  prepared(loop->service());
  Recorder recorder;
  station.connect(Station::reading, recorder.slot(""), zq::Queued, loop->service());
  auto arguments = zq::makeArguments(std::string("n"), 0);
  for (int i = 0; i < 600; ++i) station.emit(Station::reading, "n", i);
  for (int i = 0; i < 3; ++i) station.emitSignal("reading", arguments);
  recorder.after = [&](const Seen& s) {  // frames are kept in blocks of 40
    if (s.value == 2 || s.value == 239) loop->stop();
  };
  loop->run();
  ASSERT_EQ(3u, recorder.seen.size()) << "the slot that stops the loop is the last to run";
  loop->service()->restart();
  loop->run();
  ASSERT_EQ(240u, recorder.seen.size());
  for (int i = 0; i < 240; ++i) EXPECT_EQ(i, recorder.seen[i].value);
  EXPECT_EQ(4, arguments.use_count());
  loop.reset();
  EXPECT_EQ(1, arguments.use_count()) << "frames still waiting go with the loop, uncalled";
  EXPECT_EQ(240u, recorder.seen.size());
}

TEST_P(QueuedFramesTest, AThrowingSlotPartWayLeavesItsFrameOnTheStackAndTheRestDelivered) {
  std::ostringstream err;
  std::streambuf* const saved = std::cerr.rdbuf(err.rdbuf());
  Station station;
  auto* service = prepared(new boost::asio::io_service(1));
  Recorder recorder;
  std::size_t depthAfterThrow = 0;
  recorder.after = [&](const Seen& s) {
    if (s.value == 1) throw std::runtime_error("slot failed");
    if (s.value == 4) {
      depthAfterThrow = s.depth;
      service->stop();  // the loop's work keeps it serving otherwise
    }
  };
  station.connect(Station::reading, recorder.slot(""), zq::Queued, service);
  for (int i = 0; i < 5; ++i) station.emit(Station::reading, "n", i);
  std::thread([&service] { zq::ConnectionImplCpp::defaultRunLoop_main(service, true); }).join();
  EXPECT_EQ(nullptr, service);
  ASSERT_EQ(5u, recorder.seen.size());
  for (int i = 0; i < 5; ++i) EXPECT_EQ(i, recorder.seen[i].value);
  EXPECT_EQ(2u, depthAfterThrow) << "the failed delivery's frame stays below the later ones";
  EXPECT_EQ("exception caught in worker thread\n", err.str());
  std::cerr.rdbuf(saved);
}

// Emitters on several threads while the loop serves: every frame once, each thread's in order.
TEST_P(QueuedFramesTest, FramesFromManyThreadsWhileTheLoopServesArriveOnceInEachThreadsOrder) {
  Station station;
  zq::RunLoop loop;
  prepared(loop.service());
  constexpr int kThreads = 3, kEach = 3000;
  std::vector<int> next(kThreads, 0);
  std::atomic<int> delivered(0), wrong(0);
  station.connect(
      Station::reading,
      [&](const std::string& name, int value) {
        int& expected = next[name[0] - 'a'];
        if (value != expected) ++wrong;
        expected = value + 1;
        ++delivered;
      },
      zq::Queued, loop.service());
  loop.start();
  std::vector<std::thread> emitters;
  emitters.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t)
    emitters.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) station.emit(Station::reading, std::string(1, static_cast<char>('a' + t)), i);
    });
  for (std::thread& e : emitters) e.join();
  EXPECT_TRUE(zq::test::waitFor([&] { return delivered.load() == kThreads * kEach; }));
  EXPECT_EQ(0, wrong.load());
}

// Bursts longer than one handler's turn, posted behind by handlers of the test's own.
TEST_P(QueuedFramesTest, AHandlerPostedAfterAnEmissionRunsAfterItsFrameEvenPastAHandlersTurn) {
  Station station;
  zq::RunLoop loop;
  prepared(loop.service());
  constexpr int kBurst = 10000;
  int delivered = 0;  // on the loop's thread only
  std::vector<int> atBarrier;
  station.connect(
      Station::tick, [&] { ++delivered; }, zq::Queued, loop.service());
  loop.start();
  for (int round = 0; round < 3; ++round) {
    for (int i = 0; i < kBurst; ++i) station.emit(Station::tick);
    loop.service()->post([&] { atBarrier.push_back(delivered); });
  }
  std::atomic<bool> done(false);
  loop.service()->post([&] { done = true; });
  ASSERT_TRUE(zq::test::waitFor([&] { return done.load(); }));
  // Frames emitted after a barrier may run before it, in the drain under way; never later.
  ASSERT_EQ(3u, atBarrier.size());
  for (int round = 0; round < 3; ++round) EXPECT_GE(atBarrier[round], (round + 1) * kBurst) << round;
}

// A client's loop without a queue runs one handler per frame: run_one delivers one frame, and
// frames and the client's own handlers run in the order they were posted.
TEST(QueuedFramesTest, AClientsLoopRunsOneHandlerPerFrameInPostingOrder) {
  Station station;
  zq::RunLoop loop;
  std::vector<std::string> order;
  station.connect(
      Station::reading, [&](const std::string& name, int) { order.push_back(name); }, zq::Queued, loop.service());
  station.emit(Station::reading, "a", 0);
  loop.service()->post([&] { order.push_back("posted"); });
  station.emit(Station::reading, "b", 0);
  station.emit(Station::reading, "c", 0);
  EXPECT_EQ(1u, loop.service()->run_one());
  EXPECT_EQ(std::vector<std::string>{"a"}, order);
  EXPECT_EQ(3u, loop.service()->poll());
  EXPECT_EQ((std::vector<std::string>{"a", "posted", "b", "c"}), order);
}

// The library's default run loop gathers its frames.
TEST(QueuedFramesTest, TheDefaultRunLoopHasAFrameQueue) {
  EXPECT_NE(nullptr, zq::internal::FrameQueue::find(*zq::ConnectionImplCpp::defaultRunLoop()));
}

// A gathering service served by two threads still runs the slots of its frames one at a time,
// in order.
TEST(QueuedFramesTest, AGatheringServiceWithTwoThreadsDeliversOneFrameAtATimeInOrder) {
  Station station;
  boost::asio::io_service* service = new boost::asio::io_service(2);
  zq::internal::FrameQueue::of(*service);
  std::atomic<int> inside(0), overlaps(0), wrong(0), delivered(0);
  int expected = 0;
  station.connect(
      Station::reading,
      [&](const std::string&, int value) {
        if (inside.fetch_add(1) != 0) ++overlaps;
        if (value != expected++) ++wrong;
        inside.fetch_sub(1);
        ++delivered;
      },
      zq::Queued, service);
  std::vector<std::thread> serving;
  serving.reserve(2);
  for (int t = 0; t < 2; ++t)
    serving.emplace_back([service]() mutable { zq::ConnectionImplCpp::defaultRunLoop_main(service, false); });
  constexpr int kFrames = 20000;
  for (int i = 0; i < kFrames; ++i) station.emit(Station::reading, "n", i);
  EXPECT_TRUE(zq::test::waitFor([&] { return delivered.load() == kFrames; }));
  service->stop();
  for (std::thread& t : serving) t.join();
  station.disconnect("", nullptr, "");
  delete service;
  EXPECT_EQ(0, overlaps.load());
  EXPECT_EQ(0, wrong.load());
}

INSTANTIATE_TEST_SUITE_P(GatheredAndOnePerFrame, QueuedFramesTest, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& info) {
                           return info.param ? "Gathered" : "OnePerFrame";
                         });

}  // namespace
