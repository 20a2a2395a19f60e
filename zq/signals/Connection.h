// Connections: the rows of a publisher's connection table, and the frame of an emission.
//
// ConnectionImpl is the abstract row: its kind (ConnectionType), the receiver's address as an
// identity, and the slot's name. ConnectionImplCpp is the row that calls a function in this
// process, at once or later on a run loop; client code gets its subclasses from the templates
// of SignalPublisher.h (connect) and rarely derives by hand. ConnectionImplForward passes an
// emission on to another publisher (SignalPublisher::forward makes it). A connection is
// shared: the table, every running emission's snapshot and every delivery in flight hold it,
// and setting its kind to Disconnected is what stops it firing.
//
// A run loop is a boost::asio::io_service and a thread that runs it. The library keeps one
// default run loop, started at the first queued or delayed delivery that names no other and
// never stopped: its slots must not throw (one that does can end the loop for good). Frames
// queued there gather and are delivered in order by one handler per gathering, so a handler
// that a client posts on the default loop may run after frames emitted later than its post.
// A client runs a loop of its own with RunLoop (RunLoop.h) or defaultRunLoop_main; there
// every queued frame is a handler of its own, in posting order among the loop's others.
#pragma once

#include <zq/Export.h>
#include <zq/signals/Argument.h>
#include <zq/signals/GuardedPtr.h>

#include <boost/asio/io_service.hpp>

#include <atomic>
#include <cstddef>
#include <list>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace zq {

class SignalPublisher;
class ConnectionImpl;
namespace internal {
class FrameQueue;
}

// The kind of a connection in the low bits, and two request flags that only travel into
// SignalPublisher::validateType, which strips them.
enum ConnectionType : unsigned int {
  Disconnected = 0,             // taken out; must not fire
  Direct = 1,                   // runs on the emitting thread, during the emission
  Queued = 2,                   // runs later on a run loop's thread
  Blocking = 3,                 // carried and printed; the library itself does not call such a slot
  PrependConnection = 0x40000,  // goes to the front of the list
  UniqueConnection = 0x80000,   // not made when an equal connection exists
};

// The bits reserved for request flags.
constexpr unsigned int kConnectionFlagsMask = 0xf0000;

// Kind and flags combine: Queued | UniqueConnection.
inline ConnectionType operator|(ConnectionType a, ConnectionType b) {
  return static_cast<ConnectionType>(static_cast<unsigned int>(a) | static_cast<unsigned int>(b));
}

// A signal's description: element 0 is (name, name), then one pair per argument.
typedef std::vector<TypePair> SignalDeclaration;

typedef std::list<std::shared_ptr<ConnectionImpl>> ConnectionList;

// One emission in progress (SignalPublisher::CallStackFrame). A copy keeps the publisher's
// record, the arguments and the connection alive, which lets a frame cross threads.
struct ZQ_API CallStackFrame {
  CallStackFrame();
  CallStackFrame(const GuardedPtr<SignalPublisher>& publisher, const char* signal, std::shared_ptr<ArgumentVector> args,
                 float delay);
  CallStackFrame(const CallStackFrame&) = default;
  CallStackFrame& operator=(const CallStackFrame&) = default;
  // Takes the other's references without counting them again; the other is left empty.
  CallStackFrame(CallStackFrame&& other) noexcept;

  GuardedPtr<SignalPublisher> publisher;  // who emits
  std::string signal;
  std::shared_ptr<ArgumentVector> args;        // may be null
  float delay;                                 // seconds; set by whoever emits
  std::shared_ptr<ConnectionImpl> connection;  // on the stack: the connection being served
};

// A row of a connection table. The receiver is an identity, never dereferenced here: the
// client must disconnect before its receiver dies. The kind is written under the publisher's
// mutex and read without a lock.
class ZQ_API ConnectionImpl {
 public:
  virtual ~ConnectionImpl();

  // Serves the newest frame of `stack`: calls, posts or forwards. True if it took the call.
  virtual bool emit_signal(const std::list<CallStackFrame>& stack) = 0;

 protected:
  // Whether this row answers to `receiver` (null: any) and `slot` (empty: any).
  virtual bool isConnected(const void* receiver, const std::string& slot) const;

 public:
  // Whether the slot can take the arguments of `declaration`.
  virtual bool is_call_compatible(const SignalDeclaration& declaration) const = 0;
  virtual void print_debug_info(std::ostream& os) const = 0;

  ConnectionImpl(const ConnectionImpl& other);
  ConnectionImpl& operator=(const ConnectionImpl& other);

  ConnectionType type() const { return m_type.load(std::memory_order_relaxed); }
  const void* receiver() const { return m_receiver; }
  const std::string& slot() const { return m_slot; }

 protected:
  ConnectionImpl(ConnectionType type, const void* receiver, const std::string& slot);

  std::atomic<ConnectionType> m_type;
  const void* m_receiver;
  std::string m_slot;

 private:
  friend class SignalPublisher;
  void setType(ConnectionType type) { m_type.store(type, std::memory_order_relaxed); }
};

// A row that calls a function in this process: at once on the emitting thread (Direct), or
// through a run loop (Queued, or any kind with a delay above 0: the delay is cut to whole
// seconds, and a NaN counts as a delay). Subclasses implement call_slot. The run loop must
// outlive every emission that reaches this row.
class ZQ_API ConnectionImplCpp : public ConnectionImpl {
 public:
  ConnectionImplCpp(const ConnectionImplCpp& other);
  ConnectionImplCpp& operator=(const ConnectionImplCpp& other);

  bool emit_signal(const std::list<CallStackFrame>& stack) override;
  // True: a slot that knows its parameter types overrides this with the protected form.
  bool is_call_compatible(const SignalDeclaration& declaration) const override;
  // "void*@<receiver>::<slot>(...)".
  void print_debug_info(std::ostream& os) const override;

  // Calls the function with the arguments of one emission.
  virtual void call_slot(std::shared_ptr<ArgumentVector> args) = 0;
  // The same with the arguments held by the frame being served, which is how emission and
  // delivery call. This form passes call_slot its copy; a subclass that keeps nothing of
  // `args` past the call overrides it to spare the copy.
  virtual void call_slot_now(const std::shared_ptr<ArgumentVector>& args) { call_slot(args); }

  boost::asio::io_service* runLoop() const { return m_runLoop.load(std::memory_order_acquire); }

  // The process's default run loop: one detached thread over one io_service, made on first
  // call and left running to the end of the process. Throws bad_alloc or
  // boost::thread_resource_error when it cannot be made.
  static boost::asio::io_service* defaultRunLoop();
  // The body of a run loop thread: serves `runLoop` until it is stopped. An exception from a
  // slot is written to std::cerr as "exception caught in worker thread"; with nothing else
  // pending, the service then stops and the loop ends. When `owned`, the service is deleted
  // at the end and `runLoop` set to null.
  static void defaultRunLoop_main(boost::asio::io_service*& runLoop, bool owned);

 protected:
  ConnectionImplCpp(const void* receiver, const char* slot, ConnectionType type, boost::asio::io_service* runLoop);

  // Whether a slot with the `count` parameter types `types` can take the declared arguments:
  // it may take fewer than declared, compared from the first, but not more.
  bool is_call_compatible(const SignalDeclaration& declaration, const TypePair* types, std::size_t count) const;

  // One Warning line: an emission brought arguments that this slot cannot take, and the slot
  // was not called.
  void reportArgumentMismatch() const;

  // Set on first need, with no lock: racing emitters store the same loop, published whole.
  std::atomic<boost::asio::io_service*> m_runLoop;

 private:
  // The paths through a run loop: a posted copy of the frame, or a timer with one.
  bool emitQueued(const CallStackFrame& frame);
  bool emitDelayed(const CallStackFrame& frame);
  // m_runLoop, set from the default run loop on first need.
  boost::asio::io_service& loopOrDefault();

  // The frame queue of `loop`, or null for a loop that has none.
  internal::FrameQueue* framesOf(boost::asio::io_service& loop);

  // The queue of the loop last posted to (m_framesLoop), so that an emission need not look it up.
  std::atomic<internal::FrameQueue*> m_frames;
  std::atomic<boost::asio::io_service*> m_framesLoop;
};

// A row that re-emits the signal on a target publisher, under the target's signal name, on
// the emitting thread and whatever its kind: the target's own connections decide where their
// slots run. It holds a guarded pointer to the target and answers false to everything once
// the target is gone. Queries (isConnected) go through to the target's connections.
class ZQ_API ConnectionImplForward : public ConnectionImpl {
 public:
  // The receiver is the target's plain pointer, the slot `targetSignal`.
  ConnectionImplForward(GuardedPtr<SignalPublisher>& target, const char* targetSignal, ConnectionType type);
  ~ConnectionImplForward() override;

  // True when at least one connection of the target took the call.
  bool emit_signal(const std::list<CallStackFrame>& stack) override;
  bool is_call_compatible(const SignalDeclaration& declaration) const override;
  // "forwards to <type>@<address>::<signal>", or "forwards to ::<signal>" once the target is gone.
  void print_debug_info(std::ostream& os) const override;

  const GuardedPtr<SignalPublisher>& target() const { return m_target; }

 protected:
  bool isConnected(const void* receiver, const std::string& slot) const override;

 private:
  GuardedPtr<SignalPublisher> m_target;
};

}  // namespace zq
