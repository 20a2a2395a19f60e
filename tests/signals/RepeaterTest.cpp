#include <zq/signals/RunLoop.h>
#include <zq/signals/SignalPublisher.h>

#include "tests/support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

namespace {

using boost::posix_time::microsec_clock;
using boost::posix_time::milliseconds;
using zq::SignalPublisher;
using zq::test::waitFor;

class Station : public SignalPublisher {
 public:
  Station() {
    declareSignal<>("tick");
    declareSignal<int>("count");
  }
  ~Station() override { resetPtr(); }
};

// Returns once a timer on `loop` that falls due `after` from now has fired: timers of one
// loop fire in the order they fall due, so every earlier one has fired too.
void waitPast(boost::asio::io_service* loop, boost::posix_time::time_duration after) {
  std::atomic<bool> fired(false);
  boost::asio::deadline_timer marker(*loop, after);
  marker.async_wait([&](const boost::system::error_code&) { fired = true; });
  ASSERT_TRUE(waitFor([&] { return fired.load(); }));
}

class RepeaterTest : public ::testing::Test {
 protected:
  RepeaterTest() { loop.start(); }
  zq::RunLoop loop;
};

TEST_F(RepeaterTest, ARecordIsListedOnlyWhenItsFirstTimeFitsAndNeverEmits) {
  Station station;
  std::atomic<int> calls(0);
  station.connect("tick", [&] { ++calls; });
  const auto now = microsec_clock::universal_time();
  station.repeatSignal("tick", nullptr, milliseconds(5), 0, loop.service());
  station.repeatSignal("tick", nullptr, milliseconds(5), -4, loop.service());
  station.repeatSignal("tick", nullptr, milliseconds(50), now + milliseconds(10), loop.service());
  station.repeatSignal("tick", nullptr, milliseconds(5), milliseconds(4), loop.service());
  EXPECT_EQ(0u, station.countRepeaters("")) << "spent before the first time: nothing scheduled";

  station.repeatSignal("tick", nullptr, milliseconds(5), 3, loop.service());
  station.repeatSignal("tick", nullptr, milliseconds(5), milliseconds(20), loop.service());
  station.repeatSignal("tick", nullptr, milliseconds(5), now + milliseconds(30), loop.service());
  EXPECT_EQ(3u, station.countRepeaters("tick"));
  waitPast(loop.service(), milliseconds(60));
  EXPECT_EQ(0, calls.load()) << "a repeater has no connection of its own and emits nothing";
  EXPECT_EQ(3u, station.countRepeaters("tick")) << "records stay listed after their timers ran";
}

TEST_F(RepeaterTest, StopRepeatSignalEndsThatNameOnly) {
  Station station;
  station.repeatSignal("tick", nullptr, boost::posix_time::hours(1), 5, loop.service());
  station.repeatSignal("count", zq::makeArguments(7), boost::posix_time::hours(1), 5, loop.service());
  station.repeatSignal("tick", nullptr, boost::posix_time::hours(1), 5, loop.service());
  station.stopRepeatSignal("tick");
  EXPECT_EQ(0u, station.countRepeaters("tick"));
  EXPECT_EQ(1u, station.countRepeaters("count"));
  station.cleanUp();
  EXPECT_EQ(0u, station.countRepeaters(""));

  // Without a loop of its own a repeater waits on the default one.
  station.repeatSignal("tick", nullptr, boost::posix_time::hours(1), 1, nullptr);
  EXPECT_EQ(1u, station.countRepeaters("tick"));
}

TEST_F(RepeaterTest, ACancelledWaitStopsAtTheGuardOfADeadPublisher) {
  auto station = std::make_unique<Station>();
  zq::GuardedPtr<SignalPublisher> ptr = station->getPtr();
  station->repeatSignal("tick", nullptr, boost::posix_time::hours(1), 5, loop.service());
  station.reset();  // cancels the wait; its handler runs after the object is gone
  waitPast(loop.service(), milliseconds(0));
  EXPECT_EQ(1u, ptr.getCounter()->pointerCount()) << "the handler let go of its copy";
}

}  // namespace
