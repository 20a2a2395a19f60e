#include <zq/signals/internal/FrameQueue.h>

#include <zq/signals/internal/LocalPtr.h>
#include <zq/signals/internal/SignalThread.h>

#include <boost/asio/post.hpp>

#include <cstring>
#include <mutex>
#include <utility>

namespace zq {
namespace internal {
namespace {

// Headers looked back on for one to share: two connections of one signal alternate.
constexpr std::size_t kHeadersSearched = 4;
// What a batch keeps of its storage between bursts.
constexpr std::size_t kItemsKept = 4096;

// Exchanges two frames' contents, both reachable from this thread only; no reference count
// changes.
void swapFrames(CallStackFrame& a, CallStackFrame& b) {
  LocalPtr::swap(a.publisher, b.publisher);
  a.signal.swap(b.signal);
  a.args.swap(b.args);
  std::swap(a.delay, b.delay);
  a.connection.swap(b.connection);
}

// A delay by its bits: a slot may read it, and -0 is not 0 there.
std::uint32_t bitsOf(float delay) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &delay, sizeof bits);
  return bits;
}

// `to` = `from`, for frames of this thread only.
void copyFrame(CallStackFrame& to, const CallStackFrame& from) {
  LocalPtr::assign(to.publisher, from.publisher);
  to.signal = from.signal;
  to.args = from.args;
  to.delay = from.delay;
  to.connection = from.connection;
}

}  // namespace

void deliverFrame(CallStackFrame& frame, ConnectionImplCpp* slot) {
  if (!frame.connection || frame.connection->type() == Disconnected) return;
  ThreadFrames& thread = threadFrames();
  std::list<CallStackFrame>& stack = thread.stack();
  CallStackFrame& pushed = thread.push(stack);
  swapFrames(pushed, frame);
  try {
    ConnectionImplCpp& target =
        pushed.connection.get() == slot ? *slot : dynamic_cast<ConnectionImplCpp&>(*pushed.connection);
    target.call_slot_now(pushed.args);
  } catch (...) {
    copyFrame(frame, pushed);
    throw;
  }
  swapFrames(pushed, frame);
  thread.pop(stack);
}

boost::asio::io_service::id FrameQueue::id;

FrameQueue::FrameQueue(boost::asio::io_service& loop) : boost::asio::io_service::service(loop) {}

FrameQueue::~FrameQueue() {}

std::size_t FrameQueue::Batch::find(const CallStackFrame& frame, const ConnectionImplCpp* slot) const {
  const std::size_t searched = headers.size() < kHeadersSearched ? headers.size() : kHeadersSearched;
  for (std::size_t i = headers.size(); i != headers.size() - searched;) {
    const Header& header = headers[--i];
    if (header.slot == slot && header.frame.connection == frame.connection &&
        header.frame.publisher.getCounter() == frame.publisher.getCounter() &&
        header.frame.publisher.get() == frame.publisher.get() && bitsOf(header.frame.delay) == bitsOf(frame.delay) &&
        header.frame.signal == frame.signal)
      return i;
  }
  return headers.size();
}

void FrameQueue::Batch::clear() {
  items.clear();
  headers.clear();
  if (items.capacity() > kItemsKept) std::vector<Item>().swap(items);
  if (headers.capacity() > kItemsKept) std::vector<Header>().swap(headers);
}

void FrameQueue::post(const CallStackFrame& frame, ConnectionImplCpp* slot) {
  bool idle = false;
  {
    std::lock_guard<SpinLock> lock(m_lock);
    std::size_t header = m_pending.find(frame, slot);
    if (header == m_pending.headers.size()) {
      m_pending.headers.push_back(Header{CallStackFrame(), slot, 0});
      Header& added = m_pending.headers.back();
      LocalPtr::assign(added.frame.publisher, frame.publisher);  // the emitter's own frame
      added.frame.signal = frame.signal;
      added.frame.delay = frame.delay;
      added.frame.connection = frame.connection;
    }
    m_pending.items.push_back(Item{frame.args, header});
    ++m_pending.headers[header].waiting;
    idle = !m_scheduled;
    m_scheduled = true;
  }
  if (idle) schedule();
}

void FrameQueue::schedule() {
  try {
    boost::asio::post(get_io_context(), [this] { drain(); });
  } catch (...) {
    // No handler: the next post tries again.
    std::lock_guard<SpinLock> lock(m_lock);
    m_scheduled = false;
    throw;
  }
}

void FrameQueue::drain() {
  if (m_next == m_draining.items.size()) {
    m_draining.clear();
    m_next = 0;
    std::lock_guard<SpinLock> lock(m_lock);
    std::swap(m_pending, m_draining);
  }
  boost::asio::io_service& loop = get_io_context();
  try {
    // A slot that stops the loop is the last one delivered until it is restarted.
    while (m_next != m_draining.items.size() && !loop.stopped()) deliver(m_draining.items[m_next++]);
  } catch (...) {
    next();  // the frames behind it stay posted, as their handlers would
    throw;
  }
  next();
}

void FrameQueue::deliver(Item& item) {
  Header& header = m_draining.headers[item.header];
  header.frame.args.swap(item.args);
  struct Done {  // also when the slot throws
    Header& header;
    ~Done() {
      header.frame.args.reset();
      if (--header.waiting == 0) {
        header.frame.connection.reset();
        LocalPtr::reset(header.frame.publisher);
      }
    }
  } done{header};
  deliverFrame(header.frame, header.slot);
}

void FrameQueue::next() {
  {
    std::lock_guard<SpinLock> lock(m_lock);
    if (m_next == m_draining.items.size() && m_pending.items.empty()) {
      m_scheduled = false;
      return;
    }
  }
  schedule();
}

void FrameQueue::shutdown() {
  // The loop is going: what waits is destroyed, not delivered.
  Batch pending;
  {
    std::lock_guard<SpinLock> lock(m_lock);
    std::swap(pending, m_pending);
  }
  m_draining.clear();
  m_next = 0;
}

}  // namespace internal
}  // namespace zq
