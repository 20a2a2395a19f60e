#include <zq/threads/CallOwner.h>

#include <zq/foundation/Log.h>
#include <zq/threads/CallThread.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace zq {

namespace {

typedef Call::time_point time_point;
typedef std::chrono::steady_clock Clock;

// `t` plus `d`, held at the ends of the clock's range instead of wrapping: an enormous delay
// means "as late as can be", not a time in the past.
time_point later(const time_point& t, const std::chrono::nanoseconds& d) {
  typedef std::chrono::nanoseconds::rep Rep;
  Rep sum;
  if (__builtin_add_overflow(t.time_since_epoch().count(), d.count(), &sum))
    sum = d.count() > 0 ? std::numeric_limits<Rep>::max() : std::numeric_limits<Rep>::min();
  return time_point(std::chrono::nanoseconds(sum));
}

}  // namespace

// ---- Call ----

Call::Call() : m_owner(nullptr), m_applyTime(), m_cancelled(false) {}

Call::Call(const std::function<void()>& function, CallOwner* owner, const time_point& applyTime)
    : m_function(function), m_owner(owner), m_applyTime(applyTime), m_cancelled(false) {}

Call::Call(const Call& other)
    : m_function(other.m_function),
      m_owner(other.m_owner.load()),
      m_applyTime(other.m_applyTime),
      m_cancelled(other.m_cancelled.load()) {}

Call::Call(Call&& other) noexcept
    : m_function(std::move(other.m_function)),
      m_owner(other.m_owner.load()),
      m_applyTime(other.m_applyTime),
      m_cancelled(other.m_cancelled.load()) {}

Call& Call::operator=(const Call& other) {
  m_function = other.m_function;
  m_owner.store(other.m_owner.load());
  m_applyTime = other.m_applyTime;
  m_cancelled.store(other.m_cancelled.load());
  return *this;
}

Call& Call::operator=(Call&& other) noexcept {
  m_function = std::move(other.m_function);
  m_owner.store(other.m_owner.load());
  m_applyTime = other.m_applyTime;
  m_cancelled.store(other.m_cancelled.load());
  return *this;
}

Call::~Call() = default;

void Call::apply() const { m_function(); }

void Call::cancel() {
  // The flag goes last: once the call thread sees it, it may delete the call at once.
  m_owner.store(nullptr, std::memory_order_release);
  m_cancelled.store(true, std::memory_order_release);
}

bool lessCall::operator()(const Call* a, const Call* b) const {
  if (a && b) return a->getApplyTime() < b->getApplyTime();
  return !a && b;
}

// ---- CallOwner ----

std::atomic<CallThread*> CallOwner::sm_Thread(nullptr);
std::mutex CallOwner::sm_Mutex;
std::mutex CallOwner::sm_ThreadMutex;
std::set<Call*, lessCall>& CallOwner::sm_Calls = *new std::set<Call*, lessCall>();

CallOwner::CallOwner() : m_closed(false) {}

CallOwner::~CallOwner() {
  cancelCalls(true);
  // makeThreadUnemployed may have read this owner from a queued call just before the cancel
  // above cleared it; it holds the queue's mutex until it is done with us, so wait for that.
  std::lock_guard<std::mutex> barrier(sm_Mutex);
}

void CallOwner::asyncCall(const std::function<void()>& function, const std::chrono::nanoseconds& delay) {
  asyncCall(function, later(Clock::now(), delay));
}

void CallOwner::asyncCall(const std::function<void()>& function, const time_point& applyTime) {
  Call* call = new Call(function, this, applyTime);
  if (!addCall(call)) {
    delete call;
    return;
  }
  bool refused = false;
  std::size_t queued = 0;
  try {
    queued = addToQueue(call, refused);
  } catch (...) {
    // No call thread to run it: the call is not kept, so no owner is left listed in the queue.
    removeCall(call);
    delete call;
    throw;
  }
  if (refused) {
    // A time already in the queue: the call never runs. It is freed rather than kept for ever;
    // once off our list, nothing else can reach it.
    removeCall(call);
    delete call;
  }
  if (queued >= 100 && queued % 10 == 0) ZQ_LOG(Log::Warning, "zq::CallOwner::asyncCall", queued << " calls in queue");
}

void CallOwner::appendAsyncCall(const std::function<void()>& function, const std::chrono::nanoseconds& delay,
                                const std::chrono::nanoseconds& maxDelay) {
  const time_point now = Clock::now();
  const time_point last = getLastCallTime();
  time_point applyTime = later(last == time_point() ? now : last, delay);
  if (maxDelay != std::chrono::nanoseconds::max()) applyTime = std::min(applyTime, later(now, maxDelay));
  asyncCall(function, applyTime);
}

void CallOwner::cancelCalls(bool close) {
  if (m_closed.load()) return;
  if (close) m_closed.store(true);
  std::lock_guard<std::mutex> threadLock(sm_ThreadMutex);
  // The thread can't end while we hold sm_ThreadMutex, and it holds the active-call mutex for
  // as long as a call runs, so once we have both no call of ours is running.
  if (CallThread* thread = sm_Thread.load()) {
    std::lock_guard<std::mutex> activeLock(thread->getActiveCallMutex());
    std::lock_guard<std::mutex> lock(m_mutex);
    for (Call* call : m_calls) call->cancel();
    m_calls.clear();
  }
}

void CallOwner::removeCall(Call* call) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_calls.erase(call);
}

void CallOwner::makeThreadUnemployed() {
  {
    std::lock_guard<std::mutex> lock(sm_Mutex);
    if (sm_Thread.load()) {
      for (Call* call : sm_Calls) {
        if (!call) continue;
        // The thread deletes these calls later without telling their owners (their owner
        // pointers are cleared here), so take them off the owners' lists now; otherwise a
        // later cancelCalls would reach freed calls. An owner whose pointer we read here is
        // still alive: its destructor waits for the queue's mutex after its own cancelCalls.
        if (CallOwner* owner = call->getOwner()) owner->removeCall(call);
        call->cancel();
      }
    }
  }
  // The count in this line has always been 1, whatever was cancelled.
  ZQ_LOG(Log::Message, "zq::CallOwner::makeThreadUnemployed", "Cancel " << 1 << " queued calls");
}

void CallOwner::setThread(CallThread* thread) {
  std::lock_guard<std::mutex> lock(sm_ThreadMutex);
  sm_Thread.store(thread);
}

bool CallOwner::addCall(Call* call) {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (m_closed.load()) return false;
  m_calls.insert(call);
  return true;
}

std::size_t CallOwner::addToQueue(Call* call, bool& o_refused) {
  std::lock_guard<std::mutex> lock(sm_Mutex);
  o_refused = !sm_Calls.insert(call).second;
  if (CallThread* thread = sm_Thread.load()) {
    thread->wakeUp();
  } else {
    try {
      sm_Thread.store(new CallThread());
    } catch (...) {
      if (!o_refused) sm_Calls.erase(call);
      throw;
    }
  }
  return sm_Calls.size();
}

time_point CallOwner::getLastCallTime() {
  std::lock_guard<std::mutex> lock(sm_Mutex);
  if (sm_Calls.empty() || !*sm_Calls.rbegin()) return time_point();
  return (*sm_Calls.rbegin())->getApplyTime();
}

}  // namespace zq
