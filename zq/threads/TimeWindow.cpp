#include <zq/threads/TimeWindow.h>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <algorithm>

namespace zq {

TimeWindow::TimeWindow(boost::posix_time::time_duration duration) : m_duration(duration), m_maxHint(0) {}

TimeWindow::TimeWindow(const TimeWindow& other) : m_duration(other.m_duration), m_times(other.m_times), m_maxHint(0) {}

TimeWindow& TimeWindow::operator=(const TimeWindow& other) {
  m_duration = other.m_duration;
  if (this != &other) m_times = other.m_times;
  return *this;
}

TimeWindow::~TimeWindow() {}

boost::posix_time::ptime TimeWindow::now() { return boost::posix_time::microsec_clock::universal_time(); }

std::size_t TimeWindow::add(boost::posix_time::ptime time) {
  m_times.insert(std::upper_bound(m_times.begin(), m_times.end(), time), time);
  return update(now());
}

std::size_t TimeWindow::remove(boost::posix_time::ptime time) {
  const auto equal = std::equal_range(m_times.begin(), m_times.end(), time);
  m_times.erase(equal.first, equal.second);
  return update(now());
}

TimeWindow& TimeWindow::operator+=(boost::posix_time::ptime time) {
  add(time);
  return *this;
}

TimeWindow& TimeWindow::operator-=(boost::posix_time::ptime time) {
  remove(time);
  return *this;
}

TimeWindow& TimeWindow::operator++() {
  add(now());
  return *this;
}

TimeWindow TimeWindow::operator++(int) {
  TimeWindow before(*this);
  add(now());
  return before;
}

std::size_t TimeWindow::size() const { return update(now()); }

bool TimeWindow::empty() const { return update(now()) == 0; }

void TimeWindow::clear() { m_times.clear(); }

std::size_t TimeWindow::setDuration(boost::posix_time::time_duration duration) {
  m_duration = duration;
  return update(now());
}

std::size_t TimeWindow::update(boost::posix_time::ptime now) const {
  // The entry exactly at the limit stays: the window is closed at its old end. The search
  // over list nodes is linear, which suits the few entries a window is meant for.
  const boost::posix_time::ptime limit = now - m_duration;
  m_times.erase(m_times.begin(), std::lower_bound(m_times.begin(), m_times.end(), limit));
  return m_times.size();
}

}  // namespace zq
