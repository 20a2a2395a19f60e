// Signal publishers: named signals with declared argument types, connection tables, emission
// with a per-thread call stack that a slot can question.
//
//   class Thermometer : public zq::SignalPublisher {
//    public:
//     static constexpr zq::Signal<double, std::string> changed{"changed"};
//     Thermometer() { declareSignal(changed); }
//     ~Thermometer() override { resetPtr(); }       // guarded pointers learn of the end
//     void measure(double c) { emit(changed, c, "kitchen"); }
//   };
//
//   Thermometer t;
//   Display display;                                          // void Display::show(double)
//   t.connect(Thermometer::changed, &display, &Display::show);  // a slot may take fewer arguments
//   t.connect("changed", [](double c, const std::string& room) { log(c, room); },
//             zq::Direct | zq::PrependConnection);
//   t.connect("changed", &onTemperature, zq::Direct | zq::UniqueConnection);  // free function
//   t.measure(21.5);                                          // every slot runs, in list order
//   t.disconnect("changed", &display, &Display::show);
//
// connect refuses, with one Warning line, a signal that is not declared and a slot whose
// parameters do not match the declaration; connecting through a Signal<...> also checks the
// slot's parameters at compile time, and emit(Signal<...>, ...) converts the values to the
// declared types.
//
// Threads: connect, disconnect, the queries and emission may be called from any thread.
// Declarations have no lock: declare in the constructor, before other threads see the object.
// A receiver must be disconnected before it dies; the connection does not watch it.
#pragma once

#include <zq/Export.h>
#include <zq/signals/Argument.h>
#include <zq/signals/Connection.h>
#include <zq/signals/GuardedPtr.h>
#include <zq/signals/internal/Slot.h>

#include <atomic>
#include <cstddef>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>

namespace zq {

// A signal's name with its argument types, for declaring, emitting and connecting with
// checks at compile time. Cheap to copy; the name must live as long as the process.
template <class... A>
struct Signal {
  static_assert(sizeof...(A) <= ArgumentVector::max, "a signal carries at most eight arguments");
  constexpr explicit Signal(const char* signalName) : name(signalName) {}
  const char* name;
};

// The declaration of `name` with the arguments A...: {(name, name), ArgumentTraits<A>::type()...}.
template <class... A>
SignalDeclaration makeDeclaration(const char* name) {
  static_assert(sizeof...(A) <= ArgumentVector::max, "a signal carries at most eight arguments");
  return SignalDeclaration{TypePair(name, name), ArgumentTraits<carried_t<A>>::type()...};
}

// The base of everything that emits signals. See the top of this file.
class ZQ_API SignalPublisher {
 public:
  typedef zq::CallStackFrame CallStackFrame;

  SignalPublisher();
  // Emits "destroyed" to what is connected to it, then disconnects everything. It does not
  // declare the object dead: the most derived class calls resetPtr() first.
  virtual ~SignalPublisher();

  // ---- declaring (no lock: fill before other threads use the object) --------------------

  // (name, name) followed by each pair whose first member is not null.
  static SignalDeclaration createDeclaration(const char* name, const TypePair& a0 = TypePair(),
                                             const TypePair& a1 = TypePair(), const TypePair& a2 = TypePair(),
                                             const TypePair& a3 = TypePair(), const TypePair& a4 = TypePair(),
                                             const TypePair& a5 = TypePair(), const TypePair& a6 = TypePair(),
                                             const TypePair& a7 = TypePair());
  // Creates or overwrites the entry named by element 0; the declaration must not be empty.
  void declareSignal(const SignalDeclaration& declaration);
  // An array that ends with an empty declaration.
  void declareSignals(const SignalDeclaration* declarations);
  template <class... A>
  void declareSignal(const char* name) {
    declareSignal(makeDeclaration<A...>(name));
  }
  template <class... A>
  void declareSignal(const Signal<A...>& signal) {
    declareSignal(makeDeclaration<A...>(signal.name));
  }

  bool isDeclared(const char* signal) const;
  // The entry, or one shared empty declaration.
  const SignalDeclaration& signalDeclaration(const char* signal) const;
  // Whether `declaration` has the declared signal's arguments (element 0 is not compared).
  bool isCallCompatible(const char* signal, const SignalDeclaration& declaration) const;
  // Whether `args` holds a matching argument for each declared one; more are not looked at.
  static bool isCallCompatible(const SignalDeclaration& declaration, std::shared_ptr<ArgumentVector> args);
  // Whether any name of the one equals any name of the other (exact comparison).
  static bool matchesType(const TypePair& a, const TypePair& b);
  static bool matchesType(const char* name, const TypePair& b);

  // ---- connecting ------------------------------------------------------------------------

  // Strips the flags from `type`. Returns 0 when UniqueConnection finds an equal connection
  // (make none), -1 to connect at the front (PrependConnection), otherwise 1.
  int validateType(ConnectionType& type, const char* signal, const void* receiver, const char* slot);
  // Adds `connection` at the front (position < 0) or the back. An undeclared signal or a
  // connection that cannot take its arguments is dropped with one Warning line.
  void connect(const std::string& signal, std::shared_ptr<ConnectionImpl> connection, int position);

  // The client forms: each returns true if it added a connection. `type` is a kind with
  // optional PrependConnection / UniqueConnection; `runLoop` serves queued and delayed calls.
  //
  // A member function of `receiver`; (receiver, method) identify it for disconnect.
  template <class R, class M, class = typename std::enable_if<std::is_member_function_pointer<M>::value>::type>
  bool connect(const std::string& signal, R* receiver, M method, ConnectionType type = Direct,
               boost::asio::io_service* runLoop = nullptr) {
    typedef internal::MemberCall<R, M> Call;
    return connectSlot<typename internal::CallableParams<M>::type>(
        signal, type, receiver, internal::memberSlotName(method), runLoop, Call{receiver, method});
  }
  // A free function; its address identifies it.
  template <class Ret, class... P>
  bool connect(const std::string& signal, Ret (*function)(P...), ConnectionType type = Direct,
               boost::asio::io_service* runLoop = nullptr) {
    return connectSlot<internal::Params<P...>>(signal, type, reinterpret_cast<const void*>(function),
                                               internal::functionSlotName(), runLoop, function);
  }
  // A function object owned by `owner`, which identifies it with the function object's type.
  template <class R, class F,
            class = typename std::enable_if<!std::is_member_function_pointer<typename std::decay<F>::type>::value &&
                                            internal::IsSlotFunction<typename std::decay<F>::type>::value>::type>
  bool connect(const std::string& signal, R* owner, F&& function, ConnectionType type = Direct,
               boost::asio::io_service* runLoop = nullptr) {
    typedef typename std::decay<F>::type Function;
    return connectSlot<typename internal::CallableParams<Function>::type>(signal, type, owner, typeid(Function).name(),
                                                                          runLoop, Function(std::forward<F>(function)));
  }
  // A function object or lambda with no owner; its type identifies it (receiver null).
  template <class F,
            class = typename std::enable_if<std::is_class<typename std::decay<F>::type>::value &&
                                            internal::IsSlotFunction<typename std::decay<F>::type>::value>::type>
  bool connect(const std::string& signal, F&& function, ConnectionType type = Direct,
               boost::asio::io_service* runLoop = nullptr) {
    typedef typename std::decay<F>::type Function;
    return connectSlot<typename internal::CallableParams<Function>::type>(
        signal, type, nullptr, typeid(Function).name(), runLoop, Function(std::forward<F>(function)));
  }
  // The same four through a Signal, which also checks the slot's parameters at compile time.
  template <class... A, class R, class M,
            class = typename std::enable_if<std::is_member_function_pointer<M>::value>::type>
  bool connect(const Signal<A...>& signal, R* receiver, M method, ConnectionType type = Direct,
               boost::asio::io_service* runLoop = nullptr) {
    internal::checkSlot<internal::Params<A...>, typename internal::CallableParams<M>::type>();
    return connect(std::string(signal.name), receiver, method, type, runLoop);
  }
  template <class... A, class Ret, class... P>
  bool connect(const Signal<A...>& signal, Ret (*function)(P...), ConnectionType type = Direct,
               boost::asio::io_service* runLoop = nullptr) {
    internal::checkSlot<internal::Params<A...>, internal::Params<P...>>();
    return connect(std::string(signal.name), function, type, runLoop);
  }
  template <class... A, class R, class F,
            class = typename std::enable_if<!std::is_member_function_pointer<typename std::decay<F>::type>::value &&
                                            internal::IsSlotFunction<typename std::decay<F>::type>::value>::type>
  bool connect(const Signal<A...>& signal, R* owner, F&& function, ConnectionType type = Direct,
               boost::asio::io_service* runLoop = nullptr) {
    internal::checkSlot<internal::Params<A...>,
                        typename internal::CallableParams<typename std::decay<F>::type>::type>();
    return connect(std::string(signal.name), owner, std::forward<F>(function), type, runLoop);
  }
  template <class... A, class F,
            class = typename std::enable_if<std::is_class<typename std::decay<F>::type>::value &&
                                            internal::IsSlotFunction<typename std::decay<F>::type>::value>::type>
  bool connect(const Signal<A...>& signal, F&& function, ConnectionType type = Direct,
               boost::asio::io_service* runLoop = nullptr) {
    internal::checkSlot<internal::Params<A...>,
                        typename internal::CallableParams<typename std::decay<F>::type>::type>();
    return connect(std::string(signal.name), std::forward<F>(function), type, runLoop);
  }

  // ---- removing (an empty signal: every signal; null receiver: any; empty slot: any) -------

  void disconnect(const std::string& signal, const void* receiver, const std::string& slot);
  void disconnectFrom(const void* receiver, const std::string& slot);
  template <class R, class M, class = typename std::enable_if<std::is_member_function_pointer<M>::value>::type>
  void disconnect(const std::string& signal, R* receiver, M method) {
    disconnect(signal, static_cast<const void*>(receiver), internal::memberSlotName(method));
  }
  template <class Ret, class... P>
  void disconnect(const std::string& signal, Ret (*function)(P...)) {
    disconnect(signal, reinterpret_cast<const void*>(function), internal::functionSlotName());
  }

  // ---- queries ---------------------------------------------------------------------------

  // Never true for `receiver` == this publisher, which countConnected does count.
  bool isConnected(const std::string& signal, const void* receiver, const std::string& slot) const;
  bool isConnectedTo(const void* receiver, const std::string& slot) const;
  std::size_t countConnected(const std::string& signal, const void* receiver, const std::string& slot) const;

  // Moves every connection entry to `other`; an entry `other` already has is kept there and
  // this one dropped. Connections keep their kind. Declarations stay.
  virtual void moveConnectionsTo(SignalPublisher& other);

  // ---- emitting --------------------------------------------------------------------------

  // Calls each connection of `signal` in list order; returns how many took the call (16-bit,
  // wrapping). An exception from a direct slot passes through, and its frame stays on the
  // call stack. The last two parameters are not used.
  short emitSignal(const char* signal, std::shared_ptr<ArgumentVector> args, float delay = 0.0f, const char* = nullptr,
                   int = 0) const;
  short emitSignal(const CallStackFrame& frame) const;
  // Typed emission: each value travels as carried_t of its type.
  template <class... V>
  short emit(const char* signal, V&&... values) const {
    return emitSignal(signal, sizeof...(V) == 0 ? nullptr : makeArguments(std::forward<V>(values)...));
  }
  // Converts each value to the declared type first.
  template <class... A, class... V>
  short emit(const Signal<A...>& signal, V&&... values) const {
    static_assert(sizeof...(A) == sizeof...(V), "emit gives one value for each declared argument");
    return emitSignal(signal.name, sizeof...(V) == 0
                                       ? nullptr
                                       : internal::makeArgumentsAs<carried_t<A>...>(std::forward<V>(values)...));
  }

  // ---- the calling thread's emissions ------------------------------------------------------

  static std::list<CallStackFrame>& callStack();
  // Puts `stack` in place of the thread's stack and returns the one that was there.
  static std::list<CallStackFrame>* swapStack(std::list<CallStackFrame>* stack);
  static GuardedPtr<SignalPublisher> currentPublisher();  // null outside a slot
  static GuardedPtr<SignalPublisher> firstPublisher();
  static const std::string& currentSignal();  // empty outside a slot
  static ConnectionType currentSignalType();  // Disconnected outside a slot
  static bool isPublisher(GuardedPtr<SignalPublisher> publisher);

  // ---- life ------------------------------------------------------------------------------

  // Emits "destroyed" if connected, then disconnects everything. Safe to repeat.
  void cleanUp();
  // This publisher's guarded pointer, made on first call.
  GuardedPtr<SignalPublisher>& getPtr() const;
  // Declares this object dead to its guarded pointers; call it before destruction begins.
  void resetPtr();
  void setObjectDebugID(std::size_t id) const { m_objectDebugID = id; }
  std::size_t objectDebugID() const { return m_objectDebugID; }

  static const std::string sm_Empty;

 protected:
  typedef std::map<std::string, ConnectionList, std::less<>> ConnectionMap;

  // To be called with m_mutex held.
  void disconnectSignal_noLock(const std::string& signal);
  void disconnectSlot_noLock(const void* receiver, const std::string& slot);
  void disconnectAll_noLock();
  // The first entry for an empty name, else the named entry or the end.
  ConnectionMap::iterator iteratorFor(const std::string& signal);
  ConnectionMap::const_iterator const_iteratorFor(const std::string& signal) const;

  // connect, telling whether the connection went in.
  bool addConnection(const std::string& signal, std::shared_ptr<ConnectionImpl> connection, int position);

 private:
  SignalPublisher(const SignalPublisher&);
  SignalPublisher& operator=(const SignalPublisher&);

  // The emission of `signal`; `pushFrame(stack)` puts its frame on the stack once something is
  // found connected.
  template <class PushFrame>
  short emitWith(const char* signal, PushFrame pushFrame) const;

  // Takes out every connection of `list` that answers to (receiver, slot).
  static void disconnectMatching_noLock(ConnectionList& list, const void* receiver, const std::string& slot);

  template <class Parameters, class Function>
  bool connectSlot(const std::string& signal, ConnectionType type, const void* receiver, const std::string& slot,
                   boost::asio::io_service* runLoop, Function function) {
    const int position = validateType(type, signal.c_str(), receiver, slot.c_str());
    if (position == 0) return false;
    typedef typename internal::SlotConnectionFor<Function, Parameters>::type Connection;
    return addConnection(signal, std::make_shared<Connection>(receiver, slot, type, runLoop, std::move(function)),
                         position);
  }

  mutable std::atomic<std::size_t> m_objectDebugID;
  mutable std::recursive_mutex m_mutex;  // covers m_connections, not m_declarations
  ConnectionMap m_connections;           // no entry holds an empty list
  std::unordered_map<std::string, SignalDeclaration> m_declarations;
  mutable GuardedPtr<SignalPublisher> m_self;
};

}  // namespace zq
