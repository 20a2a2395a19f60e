#include <zq/threads/CallThread.h>

#include <zq/foundation/Log.h>
#include <zq/threads/CallOwner.h>

#include <algorithm>
#include <set>

namespace zq {

namespace {

typedef std::chrono::steady_clock Clock;
typedef Call::time_point time_point;

const char* const kRun = "zq::CallThread::run";

// A call that starts this late is reported.
constexpr long long kReportedDelayMs = 51;

// The longest single wait. Far-off due times are slept in pieces so that the clock arithmetic
// of the wait can't overflow; each piece simply ends in another turn of the loop.
constexpr std::chrono::hours kLongestWait(24);

// How late a call started, in whole milliseconds cut towards zero; `now` is not before `due`.
// Unsigned, because the difference of two far-apart times needn't fit a signed count.
long long millisecondsLate(const time_point& now, const time_point& due) {
  const auto difference = static_cast<unsigned long long>(now.time_since_epoch().count()) -
                          static_cast<unsigned long long>(due.time_since_epoch().count());
  return static_cast<long long>(difference / 1000000ull);
}

}  // namespace

CallThread::CallThread()
    : m_activeCall(nullptr), m_thread(nullptr), m_idle(false), m_idleTimeout(std::chrono::seconds(30)) {
  // run() passes through this mutex before it looks at any member, so it finds m_thread set.
  std::lock_guard<std::mutex> lock(m_activeCallMutex);
  m_thread = new std::thread(&CallThread::run, this);
}

CallThread::~CallThread() {
  if (m_thread && m_thread->joinable()) m_thread->detach();
  delete m_thread;
}

void CallThread::wakeUp() { m_wakeUp.notify_all(); }

void CallThread::run(CallThread* self) {
  ZQ_LOG(Log::Message, kRun, "Async function call thread is running");
  { std::lock_guard<std::mutex> constructed(self->m_activeCallMutex); }
  std::unique_lock<std::mutex> waitLock(self->m_waitMutex);
  std::set<Call*, lessCall>& queue = CallOwner::getThreadQueue();
  std::unique_lock<std::mutex> queueLock(CallOwner::getQueueMutex(), std::defer_lock);

  for (;;) {
    const time_point now = Clock::now();
    time_point due;
    queueLock.lock();
    if (!queue.empty() && *queue.begin()) {
      Call* head = *queue.begin();
      self->m_idle = false;
      if (head->isCancelled()) {
        queue.erase(queue.begin());
        queueLock.unlock();
        delete head;  // outside the lock: the function's captures may queue calls as they go
        continue;
      }
      due = head->getApplyTime();
      if (!(now < due)) {
        self->m_activeCallMutex.lock();
        // A cancelCalls that held the active-call mutex may have cancelled the head meanwhile;
        // running it now would break its promise that nothing of that owner runs any more.
        if (head->isCancelled()) {
          self->m_activeCallMutex.unlock();
          queue.erase(queue.begin());
          queueLock.unlock();
          delete head;
          continue;
        }
        self->m_activeCall = head;
        queue.erase(queue.begin());
      }
    } else {
      if (self->m_idle) {
        ZQ_LOG(Log::Message, kRun, "Async function call thread finishes");
        break;  // with the queue's mutex held, so no call can slip in unseen
      }
      ZQ_LOG(Log::Message, kRun, "Async function call thread sleeps");
      self->m_idle = true;
      due = now + self->m_idleTimeout;
    }
    if (!self->m_activeCall) {
      // The wait gives up the queue's mutex, under which addToQueue queues and wakes us: a call
      // queued after our look at the queue can't have its wake-up lost before the wait begins.
      if (now < due) self->m_wakeUp.wait_for(queueLock, std::min<Clock::duration>(due - Clock::now(), kLongestWait));
      queueLock.unlock();
      continue;
    }
    queueLock.unlock();

    try {
      self->m_activeCall->apply();
    } catch (...) {
      ZQ_LOG(Log::Warning, kRun, "Async function call failed");
    }
    if (CallOwner* owner = self->m_activeCall->getOwner()) owner->removeCall(self->m_activeCall);
    delete self->m_activeCall;
    self->m_activeCall = nullptr;
    self->m_activeCallMutex.unlock();

    const long long delay = millisecondsLate(now, due);
    if (delay >= kReportedDelayMs) ZQ_LOG(Log::Warning, kRun, "Async function delay " << delay << " msec");
  }

  // Cleared before the queue's mutex is let go: a caller of addToQueue either saw this thread
  // while it still looked at the queue, or sees null and starts a new one.
  if (CallOwner::getThread() == self) CallOwner::setThread(nullptr);
  queueLock.unlock();
  waitLock.unlock();
  delete self;
}

}  // namespace zq
