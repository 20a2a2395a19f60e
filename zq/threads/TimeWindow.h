// TimeWindow: counting events over a sliding span of time.
#pragma once

#include <zq/Export.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <cstddef>
#include <list>

namespace zq {

// Time stamps over the last `duration`: the client adds them, the window counts those whose
// time is no older than now less the duration. The old end is closed, and entries in the
// future count until they have aged out. Old entries are dropped whenever an operation looks
// at the window, so size() and empty() change the object although they are const.
//
// A plain value with no lock: a window shared by threads needs the client's lock, also for
// reading. Times are Boost ptime in universal time.
class ZQ_API TimeWindow {
 public:
  explicit TimeWindow(boost::posix_time::time_duration duration);
  // Copies take the duration and the entries; the max hint stays behind.
  TimeWindow(const TimeWindow& other);
  TimeWindow& operator=(const TimeWindow& other);
  ~TimeWindow();

  // The current time, UTC, in microseconds.
  static boost::posix_time::ptime now();

  // Adds `time` behind any equal ones; returns the number of entries in the window after it.
  std::size_t add(boost::posix_time::ptime time);
  // Removes every entry equal to `time`; returns the number of entries in the window after it.
  std::size_t remove(boost::posix_time::ptime time);
  TimeWindow& operator+=(boost::posix_time::ptime time);
  TimeWindow& operator-=(boost::posix_time::ptime time);
  // Adds now().
  TimeWindow& operator++();
  // Adds now() and returns a copy of the window from before.
  TimeWindow operator++(int);

  std::size_t size() const;
  bool empty() const;
  void clear();
  // Sets the span and returns the entries within it. Entries already dropped don't come
  // back when the span grows.
  std::size_t setDuration(boost::posix_time::time_duration duration);

  // A number kept for the client; the window itself sets no limit. 0 on a new window and on copies.
  void setMaxHint(std::size_t maxHint) { m_maxHint = maxHint; }
  std::size_t maxHint() const { return m_maxHint; }

 protected:
  // Drops the entries older than `now` less the duration; returns the number left.
  std::size_t update(boost::posix_time::ptime now) const;

 private:
  boost::posix_time::time_duration m_duration;
  mutable std::list<boost::posix_time::ptime> m_times;  // ascending, equal times allowed
  std::size_t m_maxHint;
};

}  // namespace zq
