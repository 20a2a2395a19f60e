#include <zq/threads/TimeWindow.h>

#include "tests/support/Wait.h"

#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>

namespace zq::test {
namespace {

using boost::posix_time::hours;
using boost::posix_time::minutes;

// Exposes the purge with a chosen present, to test the window's edges exactly.
struct ProbedWindow : TimeWindow {
  using TimeWindow::TimeWindow;
  using TimeWindow::update;
};

TEST(TimeWindowTest, CountsEntriesWithinTheSpanWhoseOldEndIsClosed) {
  ProbedWindow window(hours(1));
  const auto now = TimeWindow::now();
  EXPECT_EQ(0u, window.add(now - hours(2))) << "too old: in and straight out again";
  EXPECT_EQ(1u, window.add(now - minutes(50)));
  EXPECT_EQ(2u, window.add(now + hours(3))) << "future entries count";
  (window += now - minutes(10)) += now - minutes(10);
  EXPECT_EQ(2u, window.remove(now - minutes(10))) << "remove takes every equal entry";
  window -= now;  // not there: nothing changes
  EXPECT_EQ(1u, window.setDuration(minutes(30))) << "a shorter span drops older entries at once";
  EXPECT_EQ(1u, window.setDuration(hours(1))) << "dropped entries don't come back";

  window.add(now);
  EXPECT_EQ(2u, window.update(now + hours(1))) << "an entry exactly at the limit stays";
  EXPECT_EQ(1u, window.update(now + hours(1) + boost::posix_time::microseconds(1)));
  EXPECT_EQ(0u, window.update(now + hours(4) + minutes(1)));

  TimeWindow real(boost::posix_time::milliseconds(50));
  ++real;
  EXPECT_TRUE(waitFor([&] { return real.empty(); })) << "entries expire as time passes";
}

TEST(TimeWindowTest, CopiesLeaveTheHintAndIncrementsReturnAsTheySay) {
  TimeWindow window(hours(1)), assigned(minutes(1));
  window.setMaxHint(7);
  assigned.setMaxHint(3);
  ++window;
  assigned = window;
  EXPECT_EQ(0u, TimeWindow(window).maxHint()) << "the hint stays with its object";
  EXPECT_TRUE(assigned.maxHint() == 3 && assigned.size() == 1);

  EXPECT_EQ(1u, (window++).size()) << "post-increment returns the window from before";
  EXPECT_EQ(&window, &++window);
  window = static_cast<const TimeWindow&>(window);
  EXPECT_EQ(3u, window.size()) << "self-assignment keeps the entries";
}

}  // namespace
}  // namespace zq::test
