#include <zq/threads/TimeWindow.h>

#include "tests/support/Wait.h"

#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>

namespace {

using boost::posix_time::hours;
using boost::posix_time::milliseconds;
using boost::posix_time::minutes;
using zq::TimeWindow;

TEST(TimeWindowTest, CountsEntriesWithinTheSpanOnly) {
  TimeWindow window(hours(1));
  EXPECT_EQ(0u, window.size());
  EXPECT_TRUE(window.empty());

  const auto now = TimeWindow::now();
  EXPECT_EQ(0u, window.add(now - hours(2))) << "too old: in and straight out again";
  EXPECT_EQ(1u, window.add(now - minutes(50)));
  EXPECT_EQ(2u, window.add(now + hours(3))) << "future entries count";
  window += now - minutes(10);
  window += now - minutes(10);
  EXPECT_EQ(4u, window.size());
  EXPECT_EQ(2u, window.remove(now - minutes(10))) << "remove takes every equal entry";
  window -= now;  // not there: nothing changes
  EXPECT_EQ(2u, window.size());

  EXPECT_EQ(1u, window.setDuration(minutes(30))) << "a shorter span drops older entries at once";
  EXPECT_EQ(1u, window.setDuration(hours(1))) << "dropped entries don't come back";
  window.clear();
  EXPECT_EQ(0u, window.size());
}

// Exposes the purge with a chosen present, to test the window's edges exactly.
class ProbedWindow : public TimeWindow {
 public:
  using TimeWindow::TimeWindow;
  using TimeWindow::update;
};

TEST(TimeWindowTest, OldEndIsClosedAndFutureEntriesAgeOut) {
  ProbedWindow window(minutes(10));
  const auto t = TimeWindow::now();
  window.add(t);
  window.add(t + hours(1));
  EXPECT_EQ(2u, window.update(t + minutes(10))) << "an entry exactly at the limit stays";
  EXPECT_EQ(1u, window.update(t + minutes(10) + boost::posix_time::microseconds(1)));
  EXPECT_EQ(1u, window.update(t + hours(1) + minutes(10)));
  EXPECT_EQ(0u, window.update(t + hours(1) + minutes(11)));
}

TEST(TimeWindowTest, EntriesExpireAsTimePasses) {
  TimeWindow window(milliseconds(50));
  EXPECT_EQ(1u, window.add(TimeWindow::now()));
  EXPECT_TRUE(zq::test::waitFor([&] { return window.empty(); }));
}

TEST(TimeWindowTest, CopiesAndIncrements) {
  TimeWindow window(hours(1));
  window.setMaxHint(7);
  ++window;
  TimeWindow copy(window);
  EXPECT_EQ(1u, copy.size());
  EXPECT_EQ(0u, copy.maxHint()) << "the hint stays with its object";

  TimeWindow assigned(minutes(1));
  assigned.setMaxHint(3);
  assigned = window;
  EXPECT_EQ(1u, assigned.size());
  EXPECT_EQ(3u, assigned.maxHint());

  const TimeWindow before = window++;
  EXPECT_EQ(1u, before.size()) << "post-increment returns the window from before";
  EXPECT_EQ(2u, window.size());
  EXPECT_EQ(&window, &++window);
  EXPECT_EQ(3u, window.size());

  const TimeWindow& self = window;
  window = self;  // self-assignment keeps the entries
  EXPECT_EQ(3u, window.size());
}

}  // namespace
