// Deferred calls: functions queued for a moment on the library's one shared call thread.
//
// An object that wants such calls derives from, or holds, a CallOwner and says
// asyncCall(function, delay); some time later the function runs on the call thread. The owner
// lists what it has outstanding so that cancelCalls can take all of it back; its destructor
// does so. All owners share one queue ordered by apply time alone (see lessCall).
#pragma once

#include <zq/Export.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <mutex>
#include <set>

namespace zq {

class CallOwner;
class CallThread;

// One function to run at a given moment. While pending, a Call sits both in the shared queue
// (which owns it; the call thread deletes it) and in its owner's list (which does not).
// The cancellation state may be read and written from any thread; the rest is plain data that
// the queue's ordering depends on, so don't change the apply time of a queued call.
class ZQ_API Call {
 public:
  typedef std::chrono::steady_clock::time_point time_point;

  Call();
  Call(const std::function<void()>& function, CallOwner* owner, const time_point& applyTime);
  Call(const Call& other);
  Call(Call&& other) noexcept;
  Call& operator=(const Call& other);
  Call& operator=(Call&& other) noexcept;
  virtual ~Call();  // does not tell the owner

  // Runs the function; an empty one throws std::bad_function_call.
  void apply() const;
  // Marks the call cancelled and forgets its owner; leaves it in every container.
  virtual void cancel();

  bool isCancelled() const { return m_cancelled.load(std::memory_order_acquire); }
  const time_point& getApplyTime() const { return m_applyTime; }
  void setApplyTime(const time_point& applyTime) { m_applyTime = applyTime; }
  void setFunction(std::function<void()>&& function) { m_function = std::move(function); }
  CallOwner* getOwner() { return m_owner.load(std::memory_order_acquire); }
  void setOwner(CallOwner* owner) { m_owner.store(owner, std::memory_order_release); }

 private:
  std::function<void()> m_function;
  // Atomic because an owner cancels while the call thread looks at the queue's head, and the
  // two hold different mutexes.
  std::atomic<CallOwner*> m_owner;
  time_point m_applyTime;
  std::atomic<bool> m_cancelled;
};

// The queue's ordering: by apply time alone, null before everything. Two calls with the same
// time are equivalent, so the queue refuses the second one.
struct ZQ_API lessCall {
  bool operator()(const Call* a, const Call* b) const;
};

// The owner of deferred calls. Thread-safe: calls may be queued and cancelled from any thread,
// and queued from within a running deferred call. cancelCalls and the destructor must not be
// called from within a deferred call (the call thread would wait on itself); that includes a
// call whose captured data holds the last reference to its own owner, as a shared_from_this
// capture can: keep such owners alive elsewhere until their calls are cancelled. An owner must
// outlive any thread still queueing calls on it.
class ZQ_API CallOwner {
 public:
  typedef Call::time_point time_point;

  CallOwner();
  // Cancels for good; when it returns, none of this owner's calls is running or will run.
  virtual ~CallOwner();

  // Queues `function` for now plus `delay`. Dropped in silence once the owner is closed.
  // Throws std::system_error when the call thread can't be started; made safe: the call is
  // then neither queued nor listed, instead of left in the queue with an owner that may die.
  virtual void asyncCall(const std::function<void()>& function, const std::chrono::nanoseconds& delay);
  // Queues `function` for `applyTime`. A time already in the queue is refused in silence: that
  // call never runs, and is freed at once. A time in the past runs at the thread's next turn.
  void asyncCall(const std::function<void()>& function, const time_point& applyTime);
  // Queues `function` `delay` behind the last queued call (or `delay` from now when the queue
  // is empty), but no later than now plus `maxDelay`; nanoseconds::max() means no limit.
  void appendAsyncCall(const std::function<void()>& function, const std::chrono::nanoseconds& delay,
                       const std::chrono::nanoseconds& maxDelay);
  // Cancels every outstanding call of this owner, waiting for one that is running; `close`
  // refuses all later calls for good. Does nothing once the owner is closed.
  void cancelCalls(bool close);
  // Forgets `call`; the call thread uses it when a call is done.
  void removeCall(Call* call);

  // Cancels every queued call of every owner and takes them off their owners' lists; the thread
  // disposes of them and ends once idle. The owners stay open and safe to cancel and destroy.
  static void makeThreadUnemployed();

  static std::mutex& getQueueMutex() { return sm_Mutex; }
  // The running call thread, or null; read without a lock.
  static CallThread* getThread() { return sm_Thread.load(std::memory_order_acquire); }
  // The shared queue; lock getQueueMutex() to look at it.
  static std::set<Call*, lessCall>& getThreadQueue() { return sm_Calls; }
  static void setThread(CallThread* thread);

 private:
  CallOwner(const CallOwner&);
  CallOwner& operator=(const CallOwner&);

  bool addCall(Call* call);
  // The queue's size after the insertion; `o_refused` when the call's time was already there.
  static std::size_t addToQueue(Call* call, bool& o_refused);
  static time_point getLastCallTime();

  std::mutex m_mutex;
  std::set<Call*> m_calls;
  // Read without m_mutex by cancelCalls, and under it by asyncCall on other threads.
  std::atomic<bool> m_closed;

  static std::atomic<CallThread*> sm_Thread;
  static std::mutex sm_Mutex;
  static std::mutex sm_ThreadMutex;
  // Never destroyed: a call thread still alive at exit keeps using it.
  static std::set<Call*, lessCall>& sm_Calls;
};

}  // namespace zq
