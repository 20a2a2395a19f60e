#include <zq/signals/Connection.h>

#include <zq/foundation/Log.h>
#include <zq/signals/SignalPublisher.h>

namespace zq {

CallStackFrame::CallStackFrame() : delay(0.0f) {}

CallStackFrame::CallStackFrame(const GuardedPtr<SignalPublisher>& publisher, const char* signal,
                               std::shared_ptr<ArgumentVector> args, float delay)
    : publisher(publisher), signal(signal != nullptr ? signal : ""), args(std::move(args)), delay(delay) {}

// ---- ConnectionImpl ---------------------------------------------------------------------

ConnectionImpl::ConnectionImpl(ConnectionType type, const void* receiver, const std::string& slot)
    : m_type(type), m_receiver(receiver), m_slot(slot) {}

ConnectionImpl::ConnectionImpl(const ConnectionImpl& other)
    : m_type(other.type()), m_receiver(other.m_receiver), m_slot(other.m_slot) {}

ConnectionImpl& ConnectionImpl::operator=(const ConnectionImpl& other) {
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
    : ConnectionImpl(type, receiver, slot != nullptr ? slot : ""), m_runLoop(runLoop) {}

ConnectionImplCpp::ConnectionImplCpp(const ConnectionImplCpp& other)
    : ConnectionImpl(other), m_runLoop(other.runLoop()) {}

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
      call_slot(frame.args);
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

// This build delivers on the emitting thread only: without a run loop a queued or delayed
// call is declined, and the emission does not count it.
bool ConnectionImplCpp::emitQueued(const CallStackFrame&) { return false; }

bool ConnectionImplCpp::emitDelayed(const CallStackFrame&) { return false; }

}  // namespace zq
