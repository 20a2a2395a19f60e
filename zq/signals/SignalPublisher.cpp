#include <zq/signals/SignalPublisher.h>

#include <zq/foundation/Log.h>
#include <zq/platform/Threads.h>
#include <zq/signals/internal/FrameStack.h>

#include <boost/container/small_vector.hpp>

#include <cstring>
#include <mutex>
#include <stdexcept>
#include <typeinfo>

namespace zq {
namespace {

const char kDestroyed[] = "destroyed";

// What the report says of a connection's kind, flags masked off; nothing for other values.
struct KindText {
  const char* banner;  // in the publisher's report
  const char* label;   // in a call stack
};
const KindText* kindText(ConnectionType type) {
  static const KindText kTexts[] = {
      {"----direct----", "  direct"}, {"----queued----", "  queued"}, {"---blocking---", "  blocking"}};
  switch (static_cast<unsigned int>(type) & ~kConnectionFlagsMask) {
    case Direct:
      return &kTexts[0];
    case Queued:
      return &kTexts[1];
    case Blocking:
      return &kTexts[2];
    default:
      return nullptr;
  }
}

// The dynamic type and the address of a polymorphic object: "Type@0x...". A null pointer
// raises std::bad_typeid.
template <class T>
std::ostream& printObject(std::ostream& os, const T* object) {
  print_type(os, typeid(*object)) << "@";
  return print_address(os, object);
}

std::atomic<std::size_t> s_nextObjectDebugID(1);

// An emission's snapshot of a connection list. Most lists are short: no allocation for them.
typedef boost::container::small_vector<std::shared_ptr<ConnectionImpl>, 16> ConnectionSnapshot;

// Whether a reused frame already carries the name, as it does when one signal is emitted
// again and again. Names are short: a plain loop beats a call to memcmp.
bool sameText(const std::string& a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < b.size(); ++i)
    if (a[i] != b[i]) return false;
  return true;
}

// The calling thread's record, made on first use.
ZQ_TLS_WORD internal::ThreadFrames* t_frames = nullptr;

// Ends a thread's record, after the thread's C++ thread-local objects, whose destructors may
// still emit. An emission from what this deletes makes a new record, ended in turn.
void endThreadFrames(void* frames) {
  t_frames = nullptr;
  delete static_cast<internal::ThreadFrames*>(frames);
}

platform::ThreadEndSlot& framesOwner() {
  // Never destroyed: threads may end while the process's exit hooks run.
  static auto* const s_owner = new platform::ThreadEndSlot(&endThreadFrames);
  return *s_owner;
}

}  // namespace

internal::ThreadFrames& internal::threadFrames() {
  internal::ThreadFrames* frames = t_frames;
  if (frames == nullptr) {
    frames = new internal::ThreadFrames();
    framesOwner().set(frames);
    t_frames = frames;
  }
  return *frames;
}

const std::string SignalPublisher::sm_Empty;

SignalPublisher::SignalPublisher() : m_objectDebugID(s_nextObjectDebugID.fetch_add(1, std::memory_order_relaxed)) {
  declareSignal(createDeclaration(kDestroyed, TypePair("SignalPublisher*", typeid(SignalPublisher*).name())));
}

SignalPublisher::~SignalPublisher() {
  cleanUp();
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

bool SignalPublisher::isCallCompatible(const SignalDeclaration& declaration, std::shared_ptr<ArgumentVector> args) {
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
  std::lock_guard<internal::ReentrantSection> lock(m_mutex);
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
  std::lock_guard<internal::ReentrantSection> lock(m_mutex);
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
  std::lock_guard<internal::ReentrantSection> lock(m_mutex);
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
  std::lock_guard<internal::ReentrantSection> lock(m_mutex);
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
  std::unique_lock<internal::ReentrantSection> own(m_mutex);
  std::unique_lock<internal::ReentrantSection> theirs(other.m_mutex);
  // insert keeps an entry the target already has.
  for (auto& entry : m_connections) other.m_connections.insert(entry);
  m_connections.clear();
  theirs.unlock();
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
      [&](CallStackFrame& frame) {
        frame.publisher.assignLocal(self);
        if (!sameText(frame.signal, name)) frame.signal.assign(name.data(), name.size());
        frame.args = std::move(args);
        frame.delay = delay;
      },
      [&](CallStackFrame& frame) { args = std::move(frame.args); });
}

short SignalPublisher::emitSignal(const CallStackFrame& frame) const {
  return emitWith(
      frame.signal,
      [&](CallStackFrame& top) {
        top.publisher.assignLocal(frame.publisher);
        top.signal = frame.signal;
        top.args = frame.args;
        top.delay = frame.delay;
        top.connection = frame.connection;
      },
      [](CallStackFrame&) {});
}

template <class FillFrame, class EmptyFrame>
short SignalPublisher::emitWith(std::string_view signal, FillFrame fill, EmptyFrame empty) const {
  ConnectionSnapshot connections;
  {
    std::lock_guard<internal::ReentrantSection> lock(m_mutex);
    const auto entry = m_connections.find(signal);
    if (entry == m_connections.end()) return 0;
    // One by one: the vector's range assignment is an out-of-line call dearer than a short copy.
    for (const std::shared_ptr<ConnectionImpl>& connection : entry->second) connections.push_back(connection);
  }
  // From here on only the snapshot and the thread's stack are touched: a slot may destroy
  // this publisher.
  internal::ThreadFrames& thread = internal::threadFrames();
  std::list<CallStackFrame>& stack = thread.stack();
  CallStackFrame& top = thread.push(stack);
  fill(top);
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

bool SignalPublisher::isPublisher(GuardedPtr<SignalPublisher> publisher) {
  for (const CallStackFrame& frame : callStack())
    if (frame.publisher == publisher) return true;
  return false;
}

// ---- life -------------------------------------------------------------------------------

void SignalPublisher::cleanUp() {
  if (isConnected(kDestroyed, nullptr, sm_Empty)) {
    // A direct slot runs here, on the caller's thread, with no lock held.
    emitSignal(kDestroyed, std::make_shared<ArgumentVector>(new GenericArgument<SignalPublisher*>(this)), 0.0f);
  }
  std::lock_guard<internal::ReentrantSection> lock(m_mutex);
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

// ---- repeaters --------------------------------------------------------------------------

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
  // The connection stays empty: nothing fills it, and so the handler never emits.
  if (repeater->remaining < 1 || repeater->endTime < repeater->nextTime) return;
  --repeater->remaining;
  std::unique_ptr<boost::asio::deadline_timer> timer(new boost::asio::deadline_timer(*runLoop));
  timer->expires_at(repeater->nextTime);
  std::lock_guard<internal::ReentrantSection> lock(m_mutex);
  repeater->timer = timer.release();
  m_repeaters.push_back(repeater.get());
  Repeater* const listed = repeater.release();
  listed->timer->async_wait([copy = *listed](const boost::system::error_code&) mutable { repeaterExpired(copy); });
}

void SignalPublisher::repeaterExpired(Repeater& copy) {
  const boost::posix_time::ptime now = boost::posix_time::microsec_clock::universal_time();
  {
    // The wait's outcome is not looked at: a cancelled wait comes here too, and only the guard
    // keeps it from a publisher that is gone.
    SharedCountPtrGuard guard(copy.publisher);
    if (guard.isProtected()) {
      SignalPublisher* const publisher = copy.publisher.get();
      if (copy.connection && copy.connection->type() != Disconnected) {
        copy.nextTime += copy.interval;
        while (!(now < copy.nextTime)) {
          if (copy.remaining < 1) break;
          --copy.remaining;
          if (copy.endTime < copy.nextTime) break;
          publisher->emitSignal(copy);
          copy.nextTime += copy.interval;
        }
        if (copy.remaining > 0 && !(copy.endTime < copy.nextTime)) {
          copy.timer->expires_at(copy.nextTime);
          copy.timer->async_wait([next = copy](const boost::system::error_code&) mutable { repeaterExpired(next); });
          return;
        }
      }
      // Looks for the copy's address, which the list never holds: the record stays listed.
      publisher->stop(&copy);
      return;
    }
  }
  // Released only after the guard: the last reference waits for guards on the record.
  copy.publisher.reset(nullptr);
  copy.connection.reset();
}

void SignalPublisher::stop(const Repeater* repeater) {
  std::lock_guard<internal::ReentrantSection> lock(m_mutex);
  auto position = m_repeaters.begin();
  while (position != m_repeaters.end() && *position != repeater) ++position;
  stop_no_lock(position);
}

void SignalPublisher::stop(RepeaterList::iterator position) {
  std::lock_guard<internal::ReentrantSection> lock(m_mutex);
  stop_no_lock(position);
}

SignalPublisher::RepeaterList::iterator SignalPublisher::stop_no_lock(RepeaterList::iterator position) {
  if (position == m_repeaters.end()) return position;
  Repeater* const repeater = *position;
  if (repeater->timer != nullptr) {
    // A handler already running is not waited for; it works on its own copy.
    boost::system::error_code ignored;
    repeater->timer->cancel(ignored);
    delete repeater->timer;
  }
  delete repeater;
  return m_repeaters.erase(position);
}

void SignalPublisher::stopAll_no_lock() {
  for (auto position = m_repeaters.begin(); position != m_repeaters.end();) position = stop_no_lock(position);
  m_repeaters.clear();
}

void SignalPublisher::stopRepeatSignal(const std::string& signal) {
  std::lock_guard<internal::ReentrantSection> lock(m_mutex);
  for (auto position = m_repeaters.begin(); position != m_repeaters.end();)
    position = (*position)->signal == signal ? stop_no_lock(position) : std::next(position);
}

std::size_t SignalPublisher::countRepeaters(const std::string& signal) const {
  std::lock_guard<internal::ReentrantSection> lock(m_mutex);
  std::size_t count = 0;
  for (const Repeater* repeater : m_repeaters)
    if (signal.empty() || repeater->signal == signal) ++count;
  return count;
}

// ---- reports ----------------------------------------------------------------------------

void SignalPublisher::printDebugInfo(std::ostream& os) const {
  os << "---- SignalPublisher Info ----" << std::endl;
  printObject(os, this) << std::endl;
  if (!m_declarations.empty()) {
    os << "--   Declared Signals       --" << std::endl;
    for (const auto& entry : m_declarations) {
      printDebugInfo(os, entry.second);
      os << std::endl;
    }
  }
  if (!m_connections.empty()) {
    os << "--   Connected Slots        --" << std::endl;
    for (const auto& entry : m_connections) {
      const auto declared = m_declarations.find(entry.first);
      // Only moveConnectionsTo can bring in a signal without a declaration; the report stops there.
      if (declared == m_declarations.end()) throw std::out_of_range("invalid unordered_map<K, T> key");
      for (const auto& connection : entry.second) {
        printDebugInfo(os, entry.first.c_str(), declared->second, connection);
        os << std::endl;
      }
    }
  }
  os << "-------------------------------" << std::endl;
}

void SignalPublisher::printDebugInfo(std::ostream& os, const SignalDeclaration& declaration) const {
  if (declaration.empty()) return;
  os << declaration[0].first << "\t(";
  printSignature(os, declaration) << ")";
}

void SignalPublisher::printDebugInfo(std::ostream& os, const char* signal, const SignalDeclaration& declaration,
                                     std::shared_ptr<ConnectionImpl> connection) const {
  os << (signal != nullptr ? signal : "") << std::endl << "  --";
  if (const KindText* kind = kindText(connection->type())) os << kind->banner;
  os << "-->  ";
  connection->print_debug_info(os);
  if (declaration.empty())
    os << std::endl << "  (warning: undeclared signal)";
  else if (!connection->is_call_compatible(declaration))
    os << std::endl << "  (warning: type-mismatch)";
}

std::ostream& SignalPublisher::printCallStack(std::ostream& os) {
  for (const CallStackFrame& frame : callStack()) {
    printObject(os, frame.publisher.get()) << " emits " << frame.signal;
    if (frame.args) {
      os << " (";
      os.precision(80);  // stays set: long strings are cut at 80 characters
      os << *frame.args << ")\n";
    }
    os << "  through ";
    printObject(os, frame.connection.get()) << "\n";
    if (const KindText* kind = kindText(frame.connection->type())) os << kind->label;
    os << " to ";
    frame.connection->print_debug_info(os);
    os << "\n";
  }
  return os;
}

std::ostream& SignalPublisher::printSignature(std::ostream& os, const SignalDeclaration& declaration) {
  for (std::size_t i = 1; i < declaration.size(); ++i) {
    if (i != 1) os << ",";
    print_type(os, declaration[i].first);
  }
  return os;
}

std::ostream& SignalPublisher::printSignature(std::ostream& os, std::shared_ptr<ArgumentVector> args) {
  if (!args) return os;
  for (std::size_t i = 0; i < ArgumentVector::max; ++i) {
    const Argument* argument = (*args)[i];
    if (argument == nullptr) continue;
    if (i != 0) os << ",";
    print_type(os, argument->m_type.first);
  }
  return os;
}

}  // namespace zq
