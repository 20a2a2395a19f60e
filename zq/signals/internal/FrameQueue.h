// The frames queued for one run loop that has a queue, as the library's default run loop does
// (a client's loop gets one handler per frame). Emitters append a copy of each frame; one handler at a
// time, posted on the loop when the queue stops being empty, delivers what has gathered, in
// order, and posts itself again while more comes. So a burst costs the loop one handler per
// gathering instead of one per frame, and consecutive frames from one publisher's signal to
// one connection share a single reference to the publisher's record and to the connection:
// the emitter and the loop's thread no longer both count them for every message. A shared
// reference goes as soon as the last frame that names it has been delivered, as a frame's
// own would.
//
// Frames keep their order among themselves. A handler posted on the loop after an emission
// returned runs after its frame, as it would after the frame's own handler; but a frame
// emitted after a handler was posted may run before it, in the drain under way. Only where a
// slot threw, or stopped the loop that is then run again, do the frames behind it wait for a
// drain posted anew, behind what was posted meanwhile.
//
// Delivery keeps the loop's rules: a slot that stops the service is the last to run until it
// is restarted; a slot's exception leaves run() with a handler still posted for the frames
// behind it; a service destroyed with frames waiting destroys them uncalled. Slots of one
// queue run one at a time, also on a service served by several threads.
//
// Thread-safe: post from any thread. Library-private.
#pragma once

#include <zq/Export.h>
#include <zq/signals/Connection.h>
#include <zq/signals/internal/SpinLock.h>

#include <boost/asio/io_service.hpp>

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace zq {
namespace internal {

// Delivers `frame` to `slot` on this thread unless its connection is gone or disconnected:
// the frame is swapped onto the call stack for the call and back. If the slot throws, the
// frame stays on the stack, as a failed emission's does, and `frame` keeps a copy.
void deliverFrame(CallStackFrame& frame, ConnectionImplCpp* slot);

class FrameQueue : public boost::asio::io_service::service {
 public:
  static boost::asio::io_service::id id;

  explicit FrameQueue(boost::asio::io_service& loop);
  ~FrameQueue() override;
  FrameQueue(const FrameQueue&) = delete;
  FrameQueue& operator=(const FrameQueue&) = delete;

  // The queue of `loop`, made on first use and destroyed with it. The library gives one to its
  // default run loop; other loops have none unless given one so.
  ZQ_API static FrameQueue& of(boost::asio::io_service& loop);
  // The queue of `loop`, or null when it has none.
  ZQ_API static FrameQueue* find(boost::asio::io_service& loop);

  // Queues a copy of `frame` for `slot`, which the frame's connection is.
  void post(const CallStackFrame& frame, ConnectionImplCpp* slot);

 private:
  // What frames in a row share: the frame without its arguments, and how many wait on it.
  struct Header {
    CallStackFrame frame;
    ConnectionImplCpp* slot;
    std::size_t waiting;
  };
  struct Item {
    std::shared_ptr<ArgumentVector> args;  // null but while the item waits
    std::size_t header;
  };
  // Items in blocks of a fixed size, so that a burst grows no array. A block stays under 1 kB,
  // a size that malloc serves without first sorting all the small blocks that threads freed.
  struct Chunk {
    static constexpr std::size_t kItems = 40;
    Item items[kItems];
    std::size_t count = 0;
    Chunk* next = nullptr;
  };
  static_assert(sizeof(Chunk) < 1000, "a chunk outgrew the size malloc serves at once");
  struct Batch {
    std::vector<Header> headers;
    Chunk* first = nullptr;
    Chunk* last = nullptr;
    bool empty() const { return first == nullptr; }
    // The header `frame` for `slot` can share, among the last few; `headers.size()` if none.
    std::size_t find(const CallStackFrame& frame, const ConnectionImplCpp* slot) const;
  };

  void shutdown() override;

  // The posted handler's body: delivers what waits, in order. `taking`: this drain takes
  // what emitters queue; it stops taking when none comes or after a turn, and from then on
  // the next emission posts a new drain behind whatever was posted meanwhile. So a handler
  // posted after an emission returned always runs after its frame.
  void drain(bool taking);
  // Makes what emitters queued m_draining; if there is none, the drain stops taking.
  bool takePending();
  // Stops taking: what waits goes to m_tail, for this drain to deliver.
  void cut();
  void deliver(Item& item);
  // Takes the delivered first chunk off m_draining.
  void dropChunk();
  // Posts the next drain if frames wait, and otherwise lets the next emission do it.
  void next(bool taking);
  void schedule(bool taking);
  // An empty chunk, kept or new; and back to be kept, or freed. Under m_lock.
  Chunk* newChunk();
  void recycle(Chunk* chunk) noexcept;
  // Drops what `batch` holds, delivered or not.
  void discard(Batch& batch) noexcept;

  SpinLock m_lock;
  Batch m_pending;           // under m_lock
  bool m_scheduled = false;  // under m_lock: a taking drain is posted or running
  Chunk* m_spare = nullptr;  // under m_lock: emptied chunks kept for reuse
  std::size_t m_spares = 0;  // their number
  // The running drain's, handed from one drain to the next by the loop: the batch and its
  // first item not yet delivered.
  std::mutex m_running;  // held by the drain that runs
  Batch m_draining;
  std::size_t m_next = 0;
  Batch m_tail;  // taken at a cut, delivered after m_draining
};

}  // namespace internal
}  // namespace zq
