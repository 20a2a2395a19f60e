#include <zq/signals/Connection.h>
#include <zq/signals/RunLoop.h>
#include <zq/signals/SignalPublisher.h>

#include "tests/signals/Station.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <mutex>
#include <thread>

namespace {

using zq::SignalPublisher;
using zq::test::Probe;
using zq::test::Station;
using zq::test::waitFor;

TEST(ConnectionTest, ReceiverAndSlotIdentifyItAndASlotMayTakeFewerArgumentsButNotMore) {
  int receiver = 0, other = 0;
  const Probe c(&receiver, "slot");
  EXPECT_TRUE(c.isConnected(nullptr, ""));
  EXPECT_TRUE(c.isConnected(nullptr, "slot"));
  EXPECT_FALSE(c.isConnected(&other, ""));
  EXPECT_FALSE(c.isConnected(&receiver, "other"));

  const zq::SignalDeclaration two = zq::makeDeclaration<int, std::string>("two");
  const zq::TypePair slotTypes[] = {zq::ArgumentTraits<int>::type(), zq::ArgumentTraits<std::string>::type(),
                                    zq::ArgumentTraits<int>::type()};
  EXPECT_TRUE(c.is_call_compatible(zq::SignalDeclaration(), slotTypes, 0));
  EXPECT_TRUE(c.is_call_compatible(two, slotTypes, 2));
  EXPECT_FALSE(c.is_call_compatible(two, slotTypes, 3));
  EXPECT_FALSE(c.is_call_compatible(two, slotTypes + 1, 1)) << "compared from the first argument";
  EXPECT_TRUE(c.ConnectionImplCpp::is_call_compatible(two)) << "the untyped form accepts anything";
}

// What a slot saw, written on a run loop's thread and read by the test after waiting.
struct Seen {
  void record(const std::string& text) {
    std::lock_guard<std::mutex> lock(mutex);
    thread = std::this_thread::get_id();
    publisher = SignalPublisher::currentPublisher().get();
    type = SignalPublisher::currentSignalType();
    value = text;
    at = std::chrono::steady_clock::now();
    ++calls;
  }
  int count() {
    std::lock_guard<std::mutex> lock(mutex);
    return calls;
  }
  std::mutex mutex;
  std::thread::id thread;
  SignalPublisher* publisher = nullptr;
  zq::ConnectionType type = zq::Disconnected;
  std::string value;
  std::chrono::steady_clock::time_point at;
  int calls = 0;
};

// Waits until every handler posted to `loop` before this call has run (one thread: in order).
void drain(boost::asio::io_service* loop) {
  std::atomic<bool> done(false);
  loop->post([&] { done = true; });
  ASSERT_TRUE(waitFor([&] { return done.load(); }));
}

// Frames wait on loops that do not serve yet; one loop then serves, the other is destroyed.
TEST(QueuedDeliveryTest, AFrameDeliveredAfterDisconnectCallsNothingAndAnEndedLoopDropsItsFrames) {
  Station station;
  Seen seen;
  zq::RunLoop loop;
  auto idle = std::make_unique<zq::RunLoop>();
  auto arguments = zq::makeArguments(std::string("x"), 1);
  for (zq::RunLoop* l : {&loop, idle.get()})
    ASSERT_TRUE(station.connect(
        Station::reading, [&](const std::string& t, int) { seen.record(t); }, zq::Queued, l->service()));
  EXPECT_EQ(2, station.emitSignal("reading", arguments));
  EXPECT_EQ(3, arguments.use_count()) << "the waiting frames hold the arguments";
  station.disconnect("reading", nullptr, "");
  loop.start();
  drain(loop.service());
  EXPECT_EQ(2, arguments.use_count()) << "the delivered frame let go of the arguments";
  idle.reset();
  EXPECT_EQ(1, arguments.use_count());
  EXPECT_EQ(0, seen.count());
}

TEST(QueuedDeliveryTest, DelaysGoThroughATimerOnTheLoopCutToWholeSeconds) {
  Station station;
  Seen direct, blocking;
  station.connect(Station::reading, [&](const std::string& t, int) { direct.record(t); });
  station.connect(
      Station::reading, [&](const std::string& t, int) { blocking.record(t); }, zq::Blocking);

  EXPECT_EQ(1, station.emitAfter(0.0f, Station::reading, "now", 0)) << "Blocking declines and is not counted";
  EXPECT_EQ(0, blocking.count());
  EXPECT_EQ(std::this_thread::get_id(), direct.thread);

  // Under a second: at once, yet on the loop, for every kind, Blocking included; so for a NaN.
  EXPECT_EQ(2, station.emitAfter(0.5f, Station::reading, "half", 0));
  ASSERT_TRUE(waitFor([&] { return direct.count() == 2 && blocking.count() == 1; }));
  EXPECT_NE(std::this_thread::get_id(), direct.thread);
  EXPECT_EQ(2, station.emitAfter(std::nanf(""), Station::reading, "nan", 0));
  ASSERT_TRUE(waitFor([&] { return direct.count() == 3; }));

  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(2, station.emitAfter(2.5f, Station::reading, "later", 0));
  ASSERT_TRUE(waitFor([&] { return direct.count() == 4; }));
  std::lock_guard<std::mutex> lock(direct.mutex);
  EXPECT_EQ("later", direct.value);
  EXPECT_GE(direct.at - before, std::chrono::milliseconds(1900));
  EXPECT_LT(direct.at - before, std::chrono::milliseconds(2450)) << "2.5 is cut to 2 seconds";
  EXPECT_EQ(zq::Direct, direct.type);
}

TEST(QueuedDeliveryTest, HugeDelaysWaitAndNegativeOnesDoNot) {
  zq::RunLoop loop;  // its end drops the timers still waiting, with their frames
  loop.start();
  Station station;
  Seen seen;
  station.connect(
      Station::reading, [&](const std::string& t, int) { seen.record(t); }, zq::Direct, loop.service());
  EXPECT_EQ(1, station.emitAfter(-3.0f, Station::reading, "negative", 0));
  EXPECT_EQ(1, seen.count()) << "a negative delay is no delay";
  EXPECT_EQ(1, station.emitAfter(1e30f, Station::reading, "huge", 0));
  EXPECT_EQ(1, station.emitAfter(INFINITY, Station::reading, "infinite", 0));
  drain(loop.service());
  EXPECT_EQ(1, seen.count());
  station.disconnect("", nullptr, "");
}

TEST(ForwardTest, AForwardReEmitsOnTheTargetAndCountsOnce) {
  Station source, target;
  Seen direct, queued;
  for (int i = 0; i < 2; ++i) target.connect(Station::tick, [&] { direct.record(""); });
  ASSERT_TRUE(source.forward(Station::tick, target.getPtr(), zq::Queued));
  EXPECT_EQ(1, source.emit(Station::tick)) << "one forward, whatever the target has behind it";
  EXPECT_EQ(2, direct.count()) << "the forward runs on the emitting thread, whatever its kind";
  EXPECT_EQ(&target, direct.publisher);

  // Queries go through to the connections behind the forward.
  int behind = 0;
  target.connect(
      "tick", &behind, [&] { queued.record(""); }, zq::Queued);
  EXPECT_TRUE(source.isConnected("tick", &behind, ""));
  EXPECT_FALSE(source.isConnected("tick", &target, "tick")) << "a forward does not answer for itself";
  EXPECT_EQ(1u, source.countConnected("tick", &behind, ""));

  // The target's queued slot runs on the default run loop and sees the target's frame.
  source.emitAfter(0.0f, "tick");
  EXPECT_TRUE(SignalPublisher::callStack().empty());
  ASSERT_TRUE(waitFor([&] { return queued.count() == 1; }));
  std::lock_guard<std::mutex> lock(queued.mutex);
  EXPECT_NE(std::this_thread::get_id(), queued.thread);
  EXPECT_EQ(&target, queued.publisher);
  EXPECT_EQ(zq::Queued, queued.type);
}

TEST(ForwardTest, DeclarationsCarryOverAndUndeclaredSourcesStillAnswerTrue) {
  Station source;
  auto target = std::make_unique<SignalPublisher>();
  zq::test::LogCapture log;
  ASSERT_TRUE(source.forward("reading", target->getPtr(), "measured"));
  const zq::SignalDeclaration& copied = target->signalDeclaration("measured");
  ASSERT_EQ(3u, copied.size());
  EXPECT_STREQ("measured", copied[0].second);
  EXPECT_TRUE(SignalPublisher::matchesType(copied[1], zq::ArgumentTraits<std::string>::type()));

  EXPECT_TRUE(source.forward("undeclared", target->getPtr(), zq::Direct)) << "true although connect refused";
  EXPECT_EQ(1u, log.linesWith("connecting an undeclared signal (undeclared).").size());
  EXPECT_FALSE(source.isConnected("undeclared", nullptr, ""));
  EXPECT_FALSE(target->isDeclared("undeclared"));

  const zq::SignalDeclaration declarations[] = {zq::makeDeclaration<>("tick"), zq::makeDeclaration<int>("count"),
                                                zq::SignalDeclaration()};
  source.forward(declarations, target->getPtr(), zq::Direct);
  EXPECT_TRUE(source.isConnected("tick", nullptr, ""));
  EXPECT_TRUE(target->isDeclared("tick"));
  target->resetPtr();
}

TEST(ForwardTest, AForwardToADeadTargetAnswersFalseToEverything) {
  Station source;
  auto target = std::make_unique<Station>();
  int receiver = 0;
  target->connect("tick", &receiver, [] {});
  ASSERT_TRUE(source.forward("tick", target->getPtr()));
  zq::ConnectionImplForward forward(target->getPtr(), "tick", zq::Direct);
  std::ostringstream live;
  forward.print_debug_info(live);
  EXPECT_EQ("forwards to zq::test::Station@" + zq::test::address(target.get()) + "::tick", live.str());

  target.reset();
  EXPECT_EQ(0, source.emit(Station::tick));
  EXPECT_FALSE(source.isConnected("tick", &receiver, ""));
  EXPECT_EQ(0u, source.countConnected("tick", &receiver, ""));
  EXPECT_EQ(1u, source.countConnected("tick", nullptr, "")) << "an unnamed query counts the row itself";
  EXPECT_FALSE(forward.is_call_compatible(zq::makeDeclaration<>("tick")));
  live.str("");
  forward.print_debug_info(live);
  EXPECT_EQ("forwards to ::tick", live.str());
}

}  // namespace
