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
// Across threads: a Queued connection runs its slot later on a run loop's thread, the one
// given to connect or else the library's default run loop; emitAfter(seconds, ...) sends an
// emission through a timer on that loop, for every kind of connection. forward re-emits a
// signal on another publisher; repeatSignal keeps a record of a signal to repeat on a timer.
//
//   worker: t.emit(Thermometer::changed, 19.0, "cellar");
//   t.connect(Thermometer::changed, &display, &Display::show, zq::Queued);   // on the default loop
//   t.forward(Thermometer::changed, hub.getPtr());                          // hub emits "changed" too
//   t.printDebugInfo(std::cout);                                           // what is declared and connected
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
#include <zq/signals/internal/TableSection.h>

#include <boost/asio/io_service.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>

namespace zq {

namespace internal {
struct RepeaterTimer;
struct ZQ_API EndRepeaterTimer {
  void operator()(RepeaterTimer* timer) const;
};
}  // namespace internal

// A signal's name with its argument types, for declaring, emitting and connecting with
// checks at compile time. Cheap to copy; the name must live as long as the process.
template <class... A>
struct Signal {
  static_assert(sizeof...(A) <= ArgumentVector::max, "a signal carries at most eight arguments");
  constexpr explicit Signal(const char* signalName)
      : name(signalName), length(std::char_traits<char>::length(signalName)) {}
  const char* name;
  std::size_t length;  // of name, so that emitting need not count it
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

  // A signal to be emitted again and again on a run loop's timer. The record in the
  // publisher's list owns it and its timer.
  struct Repeater : CallStackFrame {
    // Cancelled as it goes.
    std::unique_ptr<internal::RepeaterTimer, internal::EndRepeaterTimer> timer;
    boost::posix_time::ptime nextTime;  // universal time
    boost::posix_time::time_duration interval;
    int remaining = 0;                 // emissions left
    boost::posix_time::ptime endTime;  // universal time
  };

  SignalPublisher();
  // Emits "destroyed" to what is connected to it, then disconnects everything and ends the
  // repeaters. It does not declare the object dead: the most derived class calls resetPtr()
  // first. A slot that throws here is reported in one Critical line, not passed on.
  virtual ~SignalPublisher();

  // ---- reports (no lock: call them at a quiet moment or on the owning thread) -------------

  // One connection: the signal, its kind, the connection's own description, and a warning
  // line when the declaration is empty or the connection cannot take its arguments.
  virtual void printDebugInfo(std::ostream& os, const char* signal, const SignalDeclaration& declaration,
                              std::shared_ptr<ConnectionImpl> connection) const;
  // One declaration: "name\t(type,type)".
  virtual void printDebugInfo(std::ostream& os, const SignalDeclaration& declaration) const;
  // The whole report: what this publisher declares and what is connected. Throws
  // std::out_of_range when a connected signal has no declaration (moveConnectionsTo can do that).
  virtual void printDebugInfo(std::ostream& os) const;

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
  static bool isCallCompatible(const SignalDeclaration& declaration, const std::shared_ptr<ArgumentVector>& args);
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
  // this one dropped. Connections keep their kind. Declarations stay. Onto itself: nothing.
  virtual void moveConnectionsTo(SignalPublisher& other);

  // The calling thread's emissions, oldest first: who emits what with which arguments, through
  // which connection to which slot. Leaves the stream's precision at 80 when it printed arguments.
  static std::ostream& printCallStack(std::ostream& os);
  // The argument types of a declaration, "," between them.
  static std::ostream& printSignature(std::ostream& os, const SignalDeclaration& declaration);
  // The types of the set slots of `args`; the "," goes by slot number, so a gap at slot 0
  // gives a leading ",".
  static std::ostream& printSignature(std::ostream& os, const std::shared_ptr<ArgumentVector>& args);

  // ---- forwarding ------------------------------------------------------------------------

  // Connects `signal` to re-emit as `targetSignal` on `target`, on the emitting thread (the
  // kind only has to be other than Disconnected). If this publisher declares `signal` and the
  // target does not declare `targetSignal`, the target gets this declaration under its name.
  // False only for a null target or when UniqueConnection finds an equal forward behind it;
  // otherwise true, even if connect refused and logged. The target must be alive during the
  // call; names must live as long as the process.
  bool forward(const char* signal, GuardedPtr<SignalPublisher>& target, const char* targetSignal,
               ConnectionType type = Direct);
  bool forward(const char* signal, GuardedPtr<SignalPublisher>& target, ConnectionType type = Direct);
  // Each declaration of an array that ends with an empty one, to the same name.
  void forward(const SignalDeclaration* declarations, GuardedPtr<SignalPublisher>& target,
               ConnectionType type = Direct);
  template <class... A>
  bool forward(const Signal<A...>& signal, GuardedPtr<SignalPublisher>& target, ConnectionType type = Direct) {
    return forward(signal.name, target, type);
  }

  // ---- repeaters -------------------------------------------------------------------------

  // Keeps a record of `signal` to repeat every `interval` on `runLoop` (null: the default run
  // loop) for `total`, for `count` times, or up to `end` (universal time). A record is listed
  // only if its first time falls within the span. Repeaters have no connection of their own
  // and so emit nothing: a record stays listed until stopRepeatSignal or cleanUp.
  void repeatSignal(const char* signal, std::shared_ptr<ArgumentVector> args, boost::posix_time::time_duration interval,
                    boost::posix_time::time_duration total, boost::asio::io_service* runLoop = nullptr);
  void repeatSignal(const char* signal, std::shared_ptr<ArgumentVector> args, boost::posix_time::time_duration interval,
                    int count, boost::asio::io_service* runLoop = nullptr);
  void repeatSignal(const char* signal, std::shared_ptr<ArgumentVector> args, boost::posix_time::time_duration interval,
                    boost::posix_time::ptime end, boost::asio::io_service* runLoop = nullptr);
  // Ends every repeater of `signal`; none is no failure.
  void stopRepeatSignal(const std::string& signal);
  // The listed repeaters of `signal`, or of every signal for an empty name.
  std::size_t countRepeaters(const std::string& signal) const;

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
    return emitAfter(0.0f, signal, std::forward<V>(values)...);
  }
  // Converts each value to the declared type first.
  template <class... A, class... V>
  short emit(const Signal<A...>& signal, V&&... values) const {
    return emitAfter(0.0f, signal, std::forward<V>(values)...);
  }
  // Emission through a timer on each connection's run loop, for every kind of connection;
  // the delay is cut to whole seconds (0.5 runs at once, but still on the loop). A delay of 0
  // or below is a plain emission.
  template <class... V>
  short emitAfter(float seconds, const char* signal, V&&... values) const {
    return emitTyped<carried_t<V>...>(signal != nullptr ? signal : "", seconds, std::forward<V>(values)...);
  }
  template <class... A, class... V>
  short emitAfter(float seconds, const Signal<A...>& signal, V&&... values) const {
    static_assert(sizeof...(A) == sizeof...(V), "emit gives one value for each declared argument");
    return emitTyped<carried_t<A>...>(std::string_view(signal.name, signal.length), seconds,
                                      std::forward<V>(values)...);
  }

  // ---- the calling thread's emissions ------------------------------------------------------

  static std::list<CallStackFrame>& callStack();
  // Puts `stack` in place of the thread's stack and returns the one that was there.
  static std::list<CallStackFrame>* swapStack(std::list<CallStackFrame>* stack);
  static GuardedPtr<SignalPublisher> currentPublisher();  // null outside a slot
  static GuardedPtr<SignalPublisher> firstPublisher();
  static const std::string& currentSignal();  // empty outside a slot
  static ConnectionType currentSignalType();  // Disconnected outside a slot
  static bool isPublisher(const GuardedPtr<SignalPublisher>& publisher);

  // ---- life ------------------------------------------------------------------------------

  // Emits "destroyed" if connected, then disconnects everything and ends the repeaters. Safe
  // to repeat.
  void cleanUp();
  // This publisher's guarded pointer, made on first call. Made safe: threads that emit on a new
  // publisher at once share one record instead of racing to assign theirs.
  GuardedPtr<SignalPublisher>& getPtr() const;
  // Declares this object dead to its guarded pointers; call it before destruction begins.
  void resetPtr();
  void setObjectDebugID(std::size_t id) const { m_objectDebugID = id; }
  std::size_t objectDebugID() const { return m_objectDebugID; }

  static const std::string sm_Empty;

 protected:
  // Orders names as text, byte by byte; a lookup by a name's view builds no string. Names
  // are short: a plain loop beats a call to memcmp.
  struct NameOrder {
    typedef void is_transparent;
    bool operator()(std::string_view a, std::string_view b) const {
      const std::size_t n = a.size() < b.size() ? a.size() : b.size();
      for (std::size_t i = 0; i < n; ++i)
        if (a[i] != b[i]) return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[i]);
      return a.size() < b.size();
    }
  };
  typedef std::map<std::string, ConnectionList, NameOrder> ConnectionMap;

  // To be called with m_mutex held.
  void disconnectSignal_noLock(const std::string& signal);
  void disconnectSlot_noLock(const void* receiver, const std::string& slot);
  void disconnectAll_noLock();
  // The first entry for an empty name, else the named entry or the end.
  ConnectionMap::iterator iteratorFor(const std::string& signal);
  ConnectionMap::const_iterator const_iteratorFor(const std::string& signal) const;

  // connect, telling whether the connection went in.
  bool addConnection(const std::string& signal, std::shared_ptr<ConnectionImpl> connection, int position);

  typedef std::list<Repeater*> RepeaterList;
  // Lists and schedules a repeater, unless `count` is spent or its first time lies past `endTime`.
  void start(const char* signal, std::shared_ptr<ArgumentVector> args, boost::posix_time::time_duration interval,
             int count, boost::posix_time::ptime startTime, boost::posix_time::ptime endTime,
             boost::asio::io_service* runLoop);
  // End the listed repeater at that address or position; an unknown one is no failure.
  void stop(const Repeater* repeater);
  void stop(RepeaterList::iterator position);
  // With m_mutex held: cancels and frees the timer and the record; returns the next position.
  RepeaterList::iterator stop_no_lock(RepeaterList::iterator position);
  void stopAll_no_lock();

 private:
  SignalPublisher(const SignalPublisher&);
  SignalPublisher& operator=(const SignalPublisher&);

  // Emits "destroyed" if anything is connected to it; a direct slot's exception passes through.
  void emitDestroyed();

  // emitSignal with the name's length known. `args` are lent to the frame and come back
  // unless a slot threw.
  short emitNamed(std::string_view signal, std::shared_ptr<ArgumentVector>& args, float delay) const;
  // The values carried as T..., in a block this thread may reuse.
  template <class... T, class... V>
  short emitTyped(std::string_view signal, float delay, V&&... values) const {
    if constexpr (sizeof...(V) == 0) {
      std::shared_ptr<ArgumentVector> none;
      return emitNamed(signal, none, delay);
    } else {
      internal::LentArguments<T...> args(std::forward<V>(values)...);
      return emitNamed(signal, args.args(), delay);
    }
  }
  // The emission of `signal`; `fill(thread, frame)` fills the frame pushed on the stack once something
  // is found connected, `empty(frame)` may take back what it lent before the frame is popped.
  template <class FillFrame, class EmptyFrame>
  short emitWith(std::string_view signal, const FillFrame& fill, const EmptyFrame& empty) const;

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
  const std::uint64_t m_identity;  // unique in the process, unlike the address
  // Covers m_connections, not m_declarations. Re-entrant; never held while a slot runs. It
  // counts the times it is left, which tells emitting threads that the table may have changed.
  mutable internal::TableSection m_mutex;
  ConnectionMap m_connections;  // no entry holds an empty list
  std::unordered_map<std::string, SignalDeclaration> m_declarations;
  RepeaterList m_repeaters;  // under m_mutex; owns its records and their timers
  mutable GuardedPtr<SignalPublisher> m_self;
  mutable std::atomic<bool> m_selfMade{false};  // m_self holds its record; set once, by getPtr
};

}  // namespace zq
