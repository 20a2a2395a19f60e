// Repeaters: records of a signal to repeat on a run loop's timer. A record has no connection
// of its own, so its timer's expiry emits nothing: the record stays listed, with its spent
// timer, until stopRepeatSignal or cleanUp ends it.
#include <zq/signals/SignalPublisher.h>

#include <boost/asio/deadline_timer.hpp>

#include <memory>

namespace zq {

namespace internal {

struct RepeaterTimer : boost::asio::deadline_timer {
  using boost::asio::deadline_timer::deadline_timer;
};

void EndRepeaterTimer::operator()(RepeaterTimer* timer) const {
  // A handler already queued still runs on the loop; it touches nothing.
  boost::system::error_code ignored;
  timer->cancel(ignored);
  delete timer;
}

}  // namespace internal

namespace {
const int kRepeatWithoutCount = 0x7fffffff;
}

void SignalPublisher::repeatSignal(const char* signal, std::shared_ptr<ArgumentVector> args,
                                   boost::posix_time::time_duration interval, boost::posix_time::time_duration total,
                                   boost::asio::io_service* runLoop) {
  const boost::posix_time::ptime now = boost::posix_time::microsec_clock::universal_time();
  start(signal, std::move(args), interval, kRepeatWithoutCount, now, now + total, runLoop);
}

void SignalPublisher::repeatSignal(const char* signal, std::shared_ptr<ArgumentVector> args,
                                   boost::posix_time::time_duration interval, int count,
                                   boost::asio::io_service* runLoop) {
  start(signal, std::move(args), interval, count, boost::posix_time::microsec_clock::universal_time(),
        boost::posix_time::ptime(boost::posix_time::max_date_time), runLoop);
}

void SignalPublisher::repeatSignal(const char* signal, std::shared_ptr<ArgumentVector> args,
                                   boost::posix_time::time_duration interval, boost::posix_time::ptime end,
                                   boost::asio::io_service* runLoop) {
  start(signal, std::move(args), interval, kRepeatWithoutCount, boost::posix_time::microsec_clock::universal_time(),
        end, runLoop);
}

void SignalPublisher::start(const char* signal, std::shared_ptr<ArgumentVector> args,
                            boost::posix_time::time_duration interval, int count, boost::posix_time::ptime startTime,
                            boost::posix_time::ptime endTime, boost::asio::io_service* runLoop) {
  if (runLoop == nullptr) runLoop = ConnectionImplCpp::defaultRunLoop();
  std::unique_ptr<Repeater> repeater(new Repeater());
  repeater->publisher = getPtr();
  repeater->signal = signal != nullptr ? signal : "";
  repeater->args = std::move(args);
  repeater->interval = interval;
  repeater->remaining = count;
  repeater->nextTime = startTime + interval;
  repeater->endTime = endTime;
  if (repeater->remaining < 1 || repeater->endTime < repeater->nextTime) return;
  --repeater->remaining;
  repeater->timer.reset(new internal::RepeaterTimer(*runLoop));
  repeater->timer->expires_at(repeater->nextTime);
  std::lock_guard<internal::TableSection> lock(m_mutex);
  // Nothing fills the record's connection, so nothing is emitted when the timer falls due.
  repeater->timer->async_wait([](const boost::system::error_code&) {});
  m_repeaters.push_back(repeater.get());
  static_cast<void>(repeater.release());  // the list owns it now
}

void SignalPublisher::stop(const Repeater* repeater) {
  std::lock_guard<internal::TableSection> lock(m_mutex);
  auto position = m_repeaters.begin();
  while (position != m_repeaters.end() && *position != repeater) ++position;
  stop_no_lock(position);
}

void SignalPublisher::stop(RepeaterList::iterator position) {
  std::lock_guard<internal::TableSection> lock(m_mutex);
  stop_no_lock(position);
}

SignalPublisher::RepeaterList::iterator SignalPublisher::stop_no_lock(RepeaterList::iterator position) {
  if (position == m_repeaters.end()) return position;
  delete *position;  // cancels and frees its timer
  return m_repeaters.erase(position);
}

void SignalPublisher::stopAll_no_lock() {
  for (auto position = m_repeaters.begin(); position != m_repeaters.end();) position = stop_no_lock(position);
}

void SignalPublisher::stopRepeatSignal(const std::string& signal) {
  std::lock_guard<internal::TableSection> lock(m_mutex);
  for (auto position = m_repeaters.begin(); position != m_repeaters.end();)
    position = (*position)->signal == signal ? stop_no_lock(position) : std::next(position);
}

std::size_t SignalPublisher::countRepeaters(const std::string& signal) const {
  internal::TableReading reading(m_mutex);
  std::size_t count = 0;
  for (const Repeater* repeater : m_repeaters)
    if (signal.empty() || repeater->signal == signal) ++count;
  return count;
}

}  // namespace zq
