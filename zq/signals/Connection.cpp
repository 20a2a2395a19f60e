#include <zq/signals/Connection.h>

#include <zq/foundation/Log.h>
#include <zq/signals/SignalPublisher.h>
#include <zq/signals/internal/FrameQueue.h>
#include <zq/signals/internal/LocalPtr.h>
#include <zq/signals/internal/SignalMemory.h>
#include <zq/signals/internal/SignalThread.h>

#include <boost/asio/deadline_timer.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/thread.hpp>

#include <cmath>
#include <iostream>
#include <mutex>

namespace zq {
namespace {

// The default run loop: null until first use, then never cleared by the library.
std::atomic<boost::asio::io_service*> s_defaultRunLoop(nullptr);

std::mutex& defaultRunLoopMutex() {
  static std::mutex s_mutex;  // made on first use, thread-safe
  return s_mutex;
}

// Longer delays are cut to this many seconds (some 68 years): a timer that does not fall due.
constexpr float kLongestDelaySeconds = 2147483647.0f;

// A delay in whole seconds, truncated toward zero. A NaN, which still takes the delayed path,
// waits no time at all.
long wholeSeconds(float delay) {
  if (std::isnan(delay)) return 0;
  if (delay >= kLongestDelaySeconds) return static_cast<long>(kLongestDelaySeconds) - 1;
  return static_cast<long>(delay);
}

// The handler of one queued or delayed delivery: a full copy of the frame and, for a delay,
// the timer, which goes with the handler whether it ran or its service was destroyed first.
struct Delivery {
  typedef internal::SignalAllocator<void> allocator_type;
  allocator_type get_allocator() const noexcept { return allocator_type(); }

  void operator()() {
    internal::deliverFrame(frame, slot);
    frame.connection.reset();
  }
  void operator()(const boost::system::error_code&) { (*this)(); }

  CallStackFrame frame;
  ConnectionImplCpp* slot;  // the connection that posted it, held through frame.connection
  std::shared_ptr<boost::asio::deadline_timer> timer;
};

}  // namespace

CallStackFrame::CallStackFrame() : delay(0.0f) {}

CallStackFrame::CallStackFrame(const GuardedPtr<SignalPublisher>& publisher, const char* signal,
                               std::shared_ptr<ArgumentVector> args, float delay)
    : publisher(publisher), signal(signal != nullptr ? signal : ""), args(std::move(args)), delay(delay) {}

CallStackFrame::CallStackFrame(CallStackFrame&& other) noexcept
    : signal(std::move(other.signal)),
      args(std::move(other.args)),
      delay(other.delay),
      connection(std::move(other.connection)) {
  internal::LocalPtr::swap(publisher, other.publisher);  // nobody else may touch what is being moved from
}

// ---- ConnectionImpl ---------------------------------------------------------------------

ConnectionImpl::ConnectionImpl(ConnectionType type, const void* receiver, const std::string& slot)
    : m_type(type), m_receiver(receiver), m_slot(slot) {}

ConnectionImpl::ConnectionImpl(const ConnectionImpl& other)
    : m_type(other.type()), m_receiver(other.m_receiver), m_slot(other.m_slot) {}

ConnectionImpl& ConnectionImpl::operator=(const ConnectionImpl& other) {
  if (this == &other) return *this;
  setType(other.type());
  m_receiver = other.m_receiver;
  m_slot = other.m_slot;
  return *this;
}

ConnectionImpl::~ConnectionImpl() {}

bool ConnectionImpl::isConnected(const void* receiver, const std::string& slot) const {
  if (receiver != nullptr && receiver != m_receiver) return false;
  return slot.empty() || slot == m_slot;
}

// ---- ConnectionImplCpp ------------------------------------------------------------------

ConnectionImplCpp::ConnectionImplCpp(const void* receiver, const char* slot, ConnectionType type,
                                     boost::asio::io_service* runLoop)
    : ConnectionImpl(type, receiver, slot != nullptr ? slot : ""),
      m_runLoop(runLoop),
      m_frames(nullptr),
      m_framesLoop(nullptr) {}

ConnectionImplCpp::ConnectionImplCpp(const ConnectionImplCpp& other)
    : ConnectionImpl(other), m_runLoop(other.runLoop()), m_frames(nullptr), m_framesLoop(nullptr) {}

ConnectionImplCpp& ConnectionImplCpp::operator=(const ConnectionImplCpp& other) {
  ConnectionImpl::operator=(other);
  m_runLoop.store(other.runLoop(), std::memory_order_relaxed);
  return *this;
}

bool ConnectionImplCpp::emit_signal(const std::list<CallStackFrame>& stack) {
  const CallStackFrame& frame = stack.back();
  // Any kind with a delay goes through a timer; a NaN delay counts as one.
  if (!(0.0f >= frame.delay)) return emitDelayed(frame);
  switch (type()) {
    case Direct:
      call_slot_now(frame.args);
      return true;
    case Queued:
      return emitQueued(frame);
    default:  // Blocking, or a kind still carrying a flag: nothing here calls such a slot
      return false;
  }
}

bool ConnectionImplCpp::is_call_compatible(const SignalDeclaration&) const { return true; }

bool ConnectionImplCpp::is_call_compatible(const SignalDeclaration& declaration, const TypePair* types,
                                           std::size_t count) const {
  const std::size_t declared = declaration.empty() ? 0 : declaration.size() - 1;
  if (count > declared) return false;
  for (std::size_t i = 0; i < count; ++i)
    if (!SignalPublisher::matchesType(declaration[i + 1], types[i])) return false;
  return true;
}

void ConnectionImplCpp::print_debug_info(std::ostream& os) const {
  os << "void*@";
  print_address(os, m_receiver) << "::" << m_slot << "(...)";
}

void ConnectionImplCpp::reportArgumentMismatch() const {
  ZQ_LOG(Log::Warning, "zq::ConnectionImplCpp::call_slot",
         "argument mismatch on signal delivery (" << m_slot << "), slot not called.");
}

boost::asio::io_service& ConnectionImplCpp::loopOrDefault() {
  boost::asio::io_service* loop = m_runLoop.load(std::memory_order_acquire);
  if (loop == nullptr) {
    loop = defaultRunLoop();
    m_runLoop.store(loop, std::memory_order_release);
  }
  return *loop;
}

bool ConnectionImplCpp::emitQueued(const CallStackFrame& frame) {
  // The queued copy keeps the connection and the arguments alive until it is delivered. The
  // library's own loop gathers frames in its queue; a client's loop gets one handler for each,
  // so that its run_one and poll, and the order among its other handlers, stay asio's.
  boost::asio::io_service& loop = loopOrDefault();
  if (internal::FrameQueue* queue = framesOf(loop)) {
    queue->post(frame, this);
  } else {
    loop.post(Delivery{frame, this, nullptr});
  }
  return true;
}

internal::FrameQueue* ConnectionImplCpp::framesOf(boost::asio::io_service& loop) {
  if (m_framesLoop.load(std::memory_order_acquire) == &loop) return m_frames.load(std::memory_order_relaxed);
  // Looked up once per loop: asio's registry takes a lock.
  internal::FrameQueue* queue = internal::FrameQueue::find(loop);
  m_frames.store(queue, std::memory_order_relaxed);
  m_framesLoop.store(&loop, std::memory_order_release);  // other emitters read the queue through it
  return queue;
}

bool ConnectionImplCpp::emitDelayed(const CallStackFrame& frame) {
  auto timer = std::make_shared<boost::asio::deadline_timer>(loopOrDefault());
  timer->expires_at(boost::posix_time::microsec_clock::universal_time() +
                    boost::posix_time::seconds(wholeSeconds(frame.delay)));
  // Nothing cancels such a timer: the handler delivers whatever the wait's outcome.
  timer->async_wait(Delivery{frame, this, timer});
  return true;
}

boost::asio::io_service* ConnectionImplCpp::defaultRunLoop() {
  std::mutex& mutex = defaultRunLoopMutex();
  boost::asio::io_service* loop = s_defaultRunLoop.load(std::memory_order_acquire);
  if (loop != nullptr) return loop;
  std::lock_guard<std::mutex> lock(mutex);
  loop = s_defaultRunLoop.load(std::memory_order_relaxed);
  if (loop == nullptr) {
    loop = new boost::asio::io_service(10);
    try {
      internal::FrameQueue::of(*loop);
      boost::thread([loop]() mutable { defaultRunLoop_main(loop, true); }).detach();
    } catch (...) {
      // Published only once its thread runs, so no one else has seen it: freed, not leaked.
      delete loop;
      throw;
    }
    s_defaultRunLoop.store(loop, std::memory_order_release);
  }
  return loop;
}

void ConnectionImplCpp::defaultRunLoop_main(boost::asio::io_service*& runLoop, bool owned) {
  do {
    // The work keeps run() from returning for lack of handlers. Its end after an exception
    // can stop the service, which then ends the loop.
    boost::asio::io_service::work work(*runLoop);
    try {
      runLoop->run();
    } catch (...) {
      std::cerr << "exception caught in worker thread" << std::endl;
    }
  } while (!runLoop->stopped());
  if (owned) {
    delete runLoop;
    runLoop = nullptr;
  }
}

// ---- ConnectionImplForward --------------------------------------------------------------

ConnectionImplForward::ConnectionImplForward(GuardedPtr<SignalPublisher>& target, const char* targetSignal,
                                             ConnectionType type)
    : ConnectionImpl(type, target.get(), targetSignal != nullptr ? targetSignal : "") {
  m_target = target;
}

ConnectionImplForward::~ConnectionImplForward() {}

bool ConnectionImplForward::emit_signal(const std::list<CallStackFrame>& stack) {
  // The guard stays for the whole nested emission: the target cannot go away under it.
  SharedCountPtrGuard guard(m_target);
  if (!guard.isProtected() || type() == Disconnected) return false;
  const CallStackFrame& outer = stack.back();
  CallStackFrame frame(m_target, m_slot.c_str(), outer.args, outer.delay);
  frame.connection = outer.connection;
  return m_target->emitSignal(frame) != 0;
}

bool ConnectionImplForward::is_call_compatible(const SignalDeclaration& declaration) const {
  SharedCountPtrGuard guard(m_target);
  return guard.isProtected() && m_target->isCallCompatible(m_slot.c_str(), declaration);
}

bool ConnectionImplForward::isConnected(const void* receiver, const std::string& slot) const {
  SharedCountPtrGuard guard(m_target);
  return guard.isProtected() && m_target->isConnected(m_slot, receiver, slot);
}

void ConnectionImplForward::print_debug_info(std::ostream& os) const {
  os << "forwards to ";
  {
    SharedCountPtrGuard guard(m_target);
    if (guard.isProtected()) {
      const SignalPublisher* target = m_target.get();
      print_type(os, typeid(*target)) << "@";
      print_address(os, target);
    }
  }
  os << "::" << m_slot;
}

}  // namespace zq
