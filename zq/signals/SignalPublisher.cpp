// Signal publishers: declaring, connecting, removing, querying, forwarding, emitting, and the
// calling thread's emissions. Repeaters and the printed reports have files of their own.
#include <zq/signals/SignalPublisher.h>

#include <zq/foundation/Log.h>
#include <zq/signals/internal/EmissionCache.h>
#include <zq/signals/internal/SignalThread.h>

#include <boost/container/small_vector.hpp>

#include <cstring>
#include <mutex>
#include <typeinfo>

namespace zq {
namespace {

const char kDestroyed[] = "destroyed";
std::atomic<std::size_t> s_nextObjectDebugID(1);
std::atomic<std::uint64_t> s_nextIdentity(1);

// An emission's snapshot of a connection list. Most lists are short: no allocation for them.
typedef boost::container::small_vector<std::shared_ptr<ConnectionImpl>, 16> ConnectionSnapshot;

void reportDestroyedThrew(const char* what) {
  ZQ_LOG(Log::Critical, "zq::SignalPublisher::~SignalPublisher", "a slot of \"destroyed\" threw: " << what);
}

}  // namespace

const std::string SignalPublisher::sm_Empty;

SignalPublisher::SignalPublisher()
    : m_objectDebugID(s_nextObjectDebugID.fetch_add(1, std::memory_order_relaxed)),
      m_identity(s_nextIdentity.fetch_add(1, std::memory_order_relaxed)) {
  declareSignal(createDeclaration(kDestroyed, TypePair("SignalPublisher*", typeid(SignalPublisher*).name())));
}

SignalPublisher::~SignalPublisher() {
  if (isConnected(kDestroyed, nullptr, sm_Empty)) {
    internal::ThreadFrames& thread = internal::threadFrames();
    std::list<CallStackFrame>& stack = thread.stack();
    const std::size_t depth = stack.size();
    // An exception must not leave a destructor: that would end the program.
    try {
      emitDestroyed();
    } catch (const std::exception& e) {
      reportDestroyedThrew(e.what());
    } catch (...) {
      reportDestroyedThrew("unknown exception");
    }
    // A failed emission leaves its frame, which names this publisher: it goes with it.
    while (stack.size() > depth) thread.pop(stack);
  }
  std::lock_guard<internal::TableSection> lock(m_mutex);
  disconnectAll_noLock();
  stopAll_no_lock();
  m_self.reset(nullptr);
}

// ---- declaring --------------------------------------------------------------------------

SignalDeclaration SignalPublisher::createDeclaration(const char* name, const TypePair& a0, const TypePair& a1,
                                                     const TypePair& a2, const TypePair& a3, const TypePair& a4,
                                                     const TypePair& a5, const TypePair& a6, const TypePair& a7) {
  SignalDeclaration declaration(1, TypePair(name, name));
  for (const TypePair* pair : {&a0, &a1, &a2, &a3, &a4, &a5, &a6, &a7})
    if (pair->first != nullptr) declaration.push_back(*pair);
  return declaration;
}

void SignalPublisher::declareSignal(const SignalDeclaration& declaration) {
  m_declarations[declaration[0].first] = declaration;
}

void SignalPublisher::declareSignals(const SignalDeclaration* declarations) {
  for (; !declarations->empty(); ++declarations) declareSignal(*declarations);
}

bool SignalPublisher::isDeclared(const char* signal) const { return m_declarations.count(signal) != 0; }

const SignalDeclaration& SignalPublisher::signalDeclaration(const char* signal) const {
  static const SignalDeclaration s_none;
  const auto it = m_declarations.find(signal);
  return it != m_declarations.end() ? it->second : s_none;
}

bool SignalPublisher::isCallCompatible(const char* signal, const SignalDeclaration& declaration) const {
  const auto it = m_declarations.find(signal);
  if (it == m_declarations.end()) return false;
  const SignalDeclaration& declared = it->second;
  if (declared.size() != declaration.size()) return false;
  for (std::size_t i = 1; i < declared.size(); ++i)
    if (!matchesType(declaration[i], declared[i])) return false;
  return true;
}

bool SignalPublisher::isCallCompatible(const SignalDeclaration& declaration,
                                       const std::shared_ptr<ArgumentVector>& args) {
  for (std::size_t i = 1; i < declaration.size(); ++i) {
    const Argument* argument = args ? (*args)[i - 1] : nullptr;
    if (argument == nullptr || !matchesType(declaration[i], argument->m_type)) return false;
  }
  return true;
}

bool SignalPublisher::matchesType(const TypePair& a, const TypePair& b) {
  return matchesType(a.first, b) || matchesType(a.second, b);
}

bool SignalPublisher::matchesType(const char* name, const TypePair& b) {
  const auto same = [](const char* x, const char* y) {
    return x == y || (x != nullptr && y != nullptr && std::strcmp(x, y) == 0);
  };
  return same(name, b.first) || same(name, b.second);
}

// ---- connecting -------------------------------------------------------------------------

int SignalPublisher::validateType(ConnectionType& type, const char* signal, const void* receiver, const char* slot) {
  const unsigned int requested = type;
  type = static_cast<ConnectionType>(requested & ~kConnectionFlagsMask);
  if ((requested & UniqueConnection) != 0 &&
      isConnected(signal != nullptr ? signal : "", receiver, slot != nullptr ? slot : ""))
    return 0;
  return (requested & PrependConnection) != 0 ? -1 : 1;
}

void SignalPublisher::connect(const std::string& signal, std::shared_ptr<ConnectionImpl> connection, int position) {
  addConnection(signal, std::move(connection), position);
}

bool SignalPublisher::addConnection(const std::string& signal, std::shared_ptr<ConnectionImpl> connection,
                                    int position) {
  std::lock_guard<internal::TableSection> lock(m_mutex);
  const auto declaration = m_declarations.find(signal);
  if (declaration == m_declarations.end()) {
    ZQ_LOG(Log::Warning, "zq::SignalPublisher::connect", "connecting an undeclared signal (" << signal << ").");
    return false;
  }
  if (!connection || !connection->is_call_compatible(declaration->second)) {
    ZQ_LOG(Log::Warning, "zq::SignalPublisher::connect",
           "type-mismatch on signal connection (" << signal << "->" << (connection ? connection->slot() : sm_Empty)
                                                  << ").");
    return false;
  }
  ConnectionList& list = m_connections[signal];
  if (position < 0)
    list.push_front(std::move(connection));
  else
    list.push_back(std::move(connection));
  return true;
}

// ---- removing ---------------------------------------------------------------------------

void SignalPublisher::disconnectMatching_noLock(ConnectionList& list, const void* receiver, const std::string& slot) {
  for (auto it = list.begin(); it != list.end();) {
    if ((*it)->isConnected(receiver, slot)) {
      (*it)->setType(Disconnected);
      it = list.erase(it);
    } else {
      ++it;
    }
  }
}

void SignalPublisher::disconnect(const std::string& signal, const void* receiver, const std::string& slot) {
  std::lock_guard<internal::TableSection> lock(m_mutex);
  if (receiver == nullptr && slot.empty()) {
    disconnectSignal_noLock(signal);
  } else if (!signal.empty()) {
    const auto entry = m_connections.find(signal);
    if (entry == m_connections.end()) return;
    disconnectMatching_noLock(entry->second, receiver, slot);
    if (entry->second.empty()) m_connections.erase(entry);
  } else {
    disconnectSlot_noLock(receiver, slot);
  }
}

void SignalPublisher::disconnectFrom(const void* receiver, const std::string& slot) {
  disconnect(sm_Empty, receiver, slot);
}

void SignalPublisher::disconnectSignal_noLock(const std::string& signal) {
  if (signal.empty()) return disconnectAll_noLock();
  const auto entry = m_connections.find(signal);
  if (entry == m_connections.end()) return;
  for (const auto& connection : entry->second) connection->setType(Disconnected);
  m_connections.erase(entry);
}

void SignalPublisher::disconnectSlot_noLock(const void* receiver, const std::string& slot) {
  if (receiver == nullptr && slot.empty()) return disconnectSignal_noLock(slot);
  for (auto entry = m_connections.begin(); entry != m_connections.end();) {
    disconnectMatching_noLock(entry->second, receiver, slot);
    entry = entry->second.empty() ? m_connections.erase(entry) : std::next(entry);
  }
}

void SignalPublisher::disconnectAll_noLock() {
  for (const auto& entry : m_connections)
    for (const auto& connection : entry.second) connection->setType(Disconnected);
  m_connections.clear();
}

SignalPublisher::ConnectionMap::iterator SignalPublisher::iteratorFor(const std::string& signal) {
  return signal.empty() ? m_connections.begin() : m_connections.find(signal);
}

SignalPublisher::ConnectionMap::const_iterator SignalPublisher::const_iteratorFor(const std::string& signal) const {
  return signal.empty() ? m_connections.begin() : m_connections.find(signal);
}

// ---- queries ----------------------------------------------------------------------------

bool SignalPublisher::isConnected(const std::string& signal, const void* receiver, const std::string& slot) const {
  internal::TableReading reading(m_mutex);
  for (auto entry = const_iteratorFor(signal); entry != m_connections.end(); ++entry) {
    if (receiver == nullptr && slot.empty()) return !entry->second.empty();
    // A query about the publisher itself finds nothing, unlike countConnected.
    if (receiver != this)
      for (const auto& connection : entry->second)
        if (connection->isConnected(receiver, slot)) return true;
    if (!signal.empty()) break;
  }
  return false;
}

bool SignalPublisher::isConnectedTo(const void* receiver, const std::string& slot) const {
  return isConnected(sm_Empty, receiver, slot);
}

std::size_t SignalPublisher::countConnected(const std::string& signal, const void* receiver,
                                            const std::string& slot) const {
  internal::TableReading reading(m_mutex);
  std::size_t count = 0;
  for (auto entry = const_iteratorFor(signal); entry != m_connections.end(); ++entry) {
    if (receiver == nullptr && slot.empty()) {
      count += entry->second.size();
    } else {
      for (const auto& connection : entry->second)
        if (connection->isConnected(receiver, slot)) ++count;
    }
    if (!signal.empty()) break;
  }
  return count;
}

// ---- forwarding -------------------------------------------------------------------------

bool SignalPublisher::forward(const char* signal, GuardedPtr<SignalPublisher>& target, const char* targetSignal,
                              ConnectionType type) {
  SignalPublisher* const to = target.get();
  if (to == nullptr || signal == nullptr || targetSignal == nullptr) return false;
  const auto declared = m_declarations.find(signal);
  if (declared != m_declarations.end() && !to->isDeclared(targetSignal)) {
    SignalDeclaration declaration = declared->second;
    declaration[0] = TypePair(targetSignal, targetSignal);
    to->declareSignal(declaration);
  }
  const int position = validateType(type, signal, to, targetSignal);
  if (position == 0) return false;
  // True whether or not connect takes it: a refusal is logged there.
  connect(signal, std::make_shared<ConnectionImplForward>(target, targetSignal, type), position);
  return true;
}

bool SignalPublisher::forward(const char* signal, GuardedPtr<SignalPublisher>& target, ConnectionType type) {
  return forward(signal, target, signal, type);
}

void SignalPublisher::forward(const SignalDeclaration* declarations, GuardedPtr<SignalPublisher>& target,
                              ConnectionType type) {
  for (; !declarations->empty(); ++declarations) forward((*declarations)[0].first, target, type);
}

void SignalPublisher::moveConnectionsTo(SignalPublisher& other) {
  if (&other == this) return;
  // Both at once: two publishers moving onto each other can't deadlock.
  std::scoped_lock lock(m_mutex, other.m_mutex);
  // insert keeps an entry the target already has.
  for (auto& entry : m_connections) other.m_connections.insert(entry);
  m_connections.clear();
}

// ---- emitting ---------------------------------------------------------------------------

short SignalPublisher::emitSignal(const char* signal, std::shared_ptr<ArgumentVector> args, float delay, const char*,
                                  int) const {
  return emitNamed(signal != nullptr ? signal : "", args, delay);
}

short SignalPublisher::emitNamed(std::string_view name, std::shared_ptr<ArgumentVector>& args, float delay) const {
  // The record is made here even if nothing is connected.
  const GuardedPtr<SignalPublisher>& self = getPtr();
  return emitWith(
      name,
      [&](internal::ThreadFrames& thread, CallStackFrame& frame) {
        thread.counts.lend(frame.publisher, self);
        // A reused frame carries the name already when one signal is emitted again and again.
        if (!internal::sameName(frame.signal, name)) frame.signal.assign(name.data(), name.size());
        frame.args = std::move(args);
        frame.delay = delay;
      },
      [&](CallStackFrame& frame) { args = std::move(frame.args); });
}

short SignalPublisher::emitSignal(const CallStackFrame& frame) const {
  return emitWith(
      frame.signal,
      [&](internal::ThreadFrames& thread, CallStackFrame& top) {
        thread.counts.lend(top.publisher, frame.publisher);
        top.signal = frame.signal;
        top.args = frame.args;
        top.delay = frame.delay;
        top.connection = frame.connection;
      },
      [](CallStackFrame&) {});
}

template <class FillFrame, class EmptyFrame>
short SignalPublisher::emitWith(std::string_view signal, const FillFrame& fill, const EmptyFrame& empty) const {
  ConnectionSnapshot connections;
  internal::SignalThread& self = internal::signalThread();
  internal::EmissionCache::Entry* cached = self.emissions.find(this, m_identity, signal);
  // What this thread read of the table stands while the lock counts no stay that could have
  // changed it, unless this thread holds the lock now and may be changing the table itself.
  if (cached != nullptr && cached->version == m_mutex.version() && !m_mutex.heldByCaller()) {
    for (const std::weak_ptr<ConnectionImpl>& weak : cached->connections)
      if (std::shared_ptr<ConnectionImpl> connection = weak.lock()) connections.push_back(std::move(connection));
  } else {
    const internal::TableReading reading(m_mutex);  // read, not changed: other threads' readings stand
    internal::EmissionCache::Entry& entry = self.emissions.slotFor(this, m_identity, signal);
    const auto found = m_connections.find(signal);
    if (found != m_connections.end()) {
      // One by one: the vector's range assignment is an out-of-line call dearer than a short copy.
      for (const std::shared_ptr<ConnectionImpl>& connection : found->second) {
        connections.push_back(connection);
        entry.connections.push_back(connection);
      }
    }
    entry.version = m_mutex.version();
    entry.publisher = this;  // whole now
  }
  // No entry holds an empty list: nothing connected, or all of it ended since it was read.
  if (connections.empty()) return 0;
  // From here on only the snapshot and the thread's stack are touched: a slot may destroy
  // this publisher.
  internal::ThreadFrames& thread = internal::threadFrames();
  std::list<CallStackFrame>& stack = thread.stack();
  CallStackFrame& top = thread.push(stack);
  fill(thread, top);
  unsigned short count = 0;
  for (std::shared_ptr<ConnectionImpl>& connection : connections) {
    // Tested afresh each time: an earlier slot or another thread may have disconnected it.
    if (connection->type() == Disconnected) continue;
    // The frame holds the connection while it is served; swapping moves no reference count.
    // If the slot throws, the frame keeps it.
    top.connection.swap(connection);
    const bool took = top.connection->emit_signal(stack);
    connection.swap(top.connection);
    if (took) ++count;
  }
  empty(top);
  thread.pop(stack);
  return static_cast<short>(count);
}

// ---- the calling thread's emissions -----------------------------------------------------

std::list<CallStackFrame>& SignalPublisher::callStack() { return internal::threadFrames().stack(); }

std::list<CallStackFrame>* SignalPublisher::swapStack(std::list<CallStackFrame>* stack) {
  internal::ThreadFrames& thread = internal::threadFrames();
  std::list<CallStackFrame>* previous = thread.current;
  thread.current = stack;
  return previous;
}

GuardedPtr<SignalPublisher> SignalPublisher::currentPublisher() {
  const std::list<CallStackFrame>& stack = callStack();
  return stack.empty() ? GuardedPtr<SignalPublisher>() : stack.back().publisher;
}

GuardedPtr<SignalPublisher> SignalPublisher::firstPublisher() {
  const std::list<CallStackFrame>& stack = callStack();
  return stack.empty() ? GuardedPtr<SignalPublisher>() : stack.front().publisher;
}

const std::string& SignalPublisher::currentSignal() {
  const std::list<CallStackFrame>& stack = callStack();
  return stack.empty() ? sm_Empty : stack.back().signal;
}

ConnectionType SignalPublisher::currentSignalType() {
  const std::list<CallStackFrame>& stack = callStack();
  return stack.empty() || !stack.back().connection ? Disconnected : stack.back().connection->type();
}

bool SignalPublisher::isPublisher(const GuardedPtr<SignalPublisher>& publisher) {
  for (const CallStackFrame& frame : callStack())
    if (frame.publisher == publisher) return true;
  return false;
}

// ---- life -------------------------------------------------------------------------------

void SignalPublisher::emitDestroyed() {
  if (!isConnected(kDestroyed, nullptr, sm_Empty)) return;
  // A direct slot runs here, on the caller's thread, with no lock held.
  emitSignal(kDestroyed, std::make_shared<ArgumentVector>(new GenericArgument<SignalPublisher*>(this)), 0.0f);
}

void SignalPublisher::cleanUp() {
  emitDestroyed();
  std::lock_guard<internal::TableSection> lock(m_mutex);
  disconnectAll_noLock();
  stopAll_no_lock();
}

GuardedPtr<SignalPublisher>& SignalPublisher::getPtr() const {
  // Two first callers (two threads emitting on a new publisher) once both assigned m_self while
  // the other read it; now one of them makes the record and the other waits for it.
  if (!m_selfMade.load(std::memory_order_acquire)) {
    static std::mutex making;
    std::lock_guard<std::mutex> lock(making);
    if (m_self.getCounter() == nullptr) m_self = GuardedPtr<SignalPublisher>(const_cast<SignalPublisher*>(this));
    m_selfMade.store(true, std::memory_order_release);
  }
  return m_self;
}

void SignalPublisher::resetPtr() { m_self.markDestroyed(); }

}  // namespace zq
