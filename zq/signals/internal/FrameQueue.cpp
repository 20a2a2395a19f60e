#include <zq/signals/internal/FrameQueue.h>

#include <zq/signals/internal/LocalPtr.h>
#include <zq/signals/internal/Sanitizers.h>
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
// How far ahead of the delivery the arguments of waiting frames are fetched.
constexpr std::size_t kFetchedAhead = 4;
// Frames delivered by one handler before it takes no more, so that the loop's other handlers
// get a turn.
constexpr std::size_t kDeliveredPerTurn = 4096;
// Emptied chunks kept for the next burst, some 250 kB.
constexpr std::size_t kChunksKept = 256;

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

// Asks for the arguments of a frame that waits a few places behind: they were made on the
// emitting thread, and the slot's first reads would otherwise each wait for them. `deep`:
// the first argument as well, which the vector, fetched earlier, points to.
template <class Item>
void fetchAhead(const Item& item, bool deep) {
#if defined(__GNUC__) || defined(__clang__)
  const ArgumentVector* args = item.args.get();
  if (args == nullptr) return;
  if (!deep) return __builtin_prefetch(args, 1);  // its count is written when it is copied
  if (const Argument* first = (*args)[0]) __builtin_prefetch(first, 0);
#else
  (void)item, (void)deep;
#endif
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

FrameQueue& FrameQueue::of(boost::asio::io_service& loop) { return boost::asio::use_service<FrameQueue>(loop); }

FrameQueue* FrameQueue::find(boost::asio::io_service& loop) {
  return boost::asio::has_service<FrameQueue>(loop) ? &of(loop) : nullptr;
}

FrameQueue::FrameQueue(boost::asio::io_service& loop) : boost::asio::io_service::service(loop) {}

FrameQueue::~FrameQueue() {
  shutdown();
  while (m_spare != nullptr) {
    Chunk* chunk = std::exchange(m_spare, m_spare->next);
    unparkMemory(chunk->items, sizeof chunk->items);
    delete chunk;
  }
}

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

FrameQueue::Chunk* FrameQueue::newChunk() {
  if (m_spare == nullptr) return new Chunk();
  --m_spares;
  Chunk* chunk = std::exchange(m_spare, m_spare->next);
  chunk->next = nullptr;
  unparkMemory(chunk->items, sizeof chunk->items);
  return chunk;
}

void FrameQueue::recycle(Chunk* chunk) noexcept {
  chunk->count = 0;
  if (m_spares == kChunksKept) {
    delete chunk;
    return;
  }
  ++m_spares;
  chunk->next = m_spare;
  m_spare = chunk;
  parkMemory(chunk->items, sizeof chunk->items);  // a kept chunk's items are not to be touched
}

void FrameQueue::post(const CallStackFrame& frame, ConnectionImplCpp* slot) {
  bool idle = false;
  {
    std::lock_guard<SpinLock> lock(m_lock);
    Batch& batch = m_pending;
    const std::size_t header = batch.find(frame, slot);
    if (header == batch.headers.size()) {
      batch.headers.push_back(Header{CallStackFrame(), slot, 0});
      Header& added = batch.headers.back();
      LocalPtr::assign(added.frame.publisher, frame.publisher);  // the emitter's own frame
      added.frame.signal = frame.signal;
      added.frame.delay = frame.delay;
      added.frame.connection = frame.connection;
    }
    if (batch.last == nullptr || batch.last->count == Chunk::kItems) {
      Chunk* chunk = newChunk();
      (batch.last != nullptr ? batch.last->next : batch.first) = chunk;
      batch.last = chunk;
    }
    Item& item = batch.last->items[batch.last->count];
    item.args = frame.args;
    item.header = header;
    ++batch.last->count;
    ++batch.headers[header].waiting;
    idle = !m_scheduled;
    m_scheduled = true;
  }
  if (idle) schedule(true);
}

void FrameQueue::schedule(bool taking) {
  try {
    boost::asio::post(get_io_context(), [this, taking] { drain(taking); });
  } catch (...) {
    // No handler: the next post tries again.
    if (taking) {
      std::lock_guard<SpinLock> lock(m_lock);
      m_scheduled = false;
    }
    throw;
  }
}

void FrameQueue::drain(bool taking) {
  // Two drains meet only on a loop served by several threads: the second waits its turn.
  std::lock_guard<std::mutex> running(m_running);
  boost::asio::io_service& loop = get_io_context();
  try {
    // A slot that stops the loop is the last one delivered until it is restarted.
    for (std::size_t delivered = 0; !loop.stopped(); ++delivered) {
      if (m_draining.empty()) {
        if (!m_tail.empty()) {
          std::swap(m_draining, m_tail);
          m_next = 0;
        } else if (!taking || !takePending()) {
          taking = false;  // takePending let go of the queue
          break;
        }
      }
      if (taking && delivered >= kDeliveredPerTurn && m_tail.empty()) {
        cut();
        taking = false;
      }
      Chunk* chunk = m_draining.first;
      if (m_next + kFetchedAhead < chunk->count) fetchAhead(chunk->items[m_next + kFetchedAhead], false);
      if (m_next + kFetchedAhead / 2 < chunk->count) fetchAhead(chunk->items[m_next + kFetchedAhead / 2], true);
      deliver(chunk->items[m_next++]);
      if (m_next == chunk->count) dropChunk();
    }
  } catch (...) {
    next(taking);  // the frames behind it stay posted, as their handlers would
    throw;
  }
  next(taking);
}

bool FrameQueue::takePending() {
  std::lock_guard<SpinLock> lock(m_lock);
  if (m_pending.empty()) {
    m_scheduled = false;  // the next emission posts a drain behind whatever was posted meanwhile
    return false;
  }
  std::swap(m_pending, m_draining);
  m_next = 0;
  return true;
}

void FrameQueue::cut() {
  std::lock_guard<SpinLock> lock(m_lock);
  std::swap(m_pending, m_tail);
  m_scheduled = false;
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

void FrameQueue::dropChunk() {
  Chunk* chunk = m_draining.first;
  m_next = 0;
  m_draining.first = chunk->next;
  if (m_draining.first == nullptr) {
    m_draining.last = nullptr;
    m_draining.headers.clear();
  }
  std::lock_guard<SpinLock> lock(m_lock);
  recycle(chunk);
}

void FrameQueue::next(bool taking) {
  // After a slot that threw, its chunk may be delivered to the end.
  if (!m_draining.empty() && m_next == m_draining.first->count) dropChunk();
  if (m_draining.empty() && m_tail.empty()) {
    if (!taking) return;
    std::lock_guard<SpinLock> lock(m_lock);
    if (m_pending.empty()) {
      m_scheduled = false;
      return;
    }
  }
  schedule(taking);
}

void FrameQueue::discard(Batch& batch) noexcept {
  while (batch.first != nullptr) {
    Chunk* chunk = std::exchange(batch.first, batch.first->next);
    for (std::size_t i = 0; i != chunk->count; ++i) chunk->items[i].args.reset();
    delete chunk;
  }
  batch.last = nullptr;
  batch.headers.clear();
}

void FrameQueue::shutdown() {
  // The loop is going: what waits is destroyed, not delivered.
  Batch pending;
  {
    std::lock_guard<SpinLock> lock(m_lock);
    std::swap(pending, m_pending);
  }
  discard(pending);
  discard(m_draining);
  discard(m_tail);
  m_next = 0;
}

}  // namespace internal
}  // namespace zq
