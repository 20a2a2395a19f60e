// The call thread: the one worker that runs the deferred calls of every CallOwner.
#pragma once

#include <zq/Export.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace zq {

class Call;

// Born on demand when a call is queued and none exists, it sleeps until the next call falls
// due, runs the calls one at a time in the order of their times, and ends and deletes itself
// after 30 seconds with nothing to do. CallOwner creates it; clients don't. It is never
// joined: a program may return from main while it sleeps or has calls queued.
class ZQ_API CallThread {
 public:
  // Starts the thread. Throws std::system_error when the system refuses one.
  CallThread();
  // Runs on the thread itself, as the last act of run(): detaches, joins nothing.
  virtual ~CallThread();

  // The thread's body; ends by deleting `self`.
  static void run(CallThread* self);
  // Ends a wait early. Takes no lock itself; given under CallOwner::getQueueMutex(), as the
  // queue gives it, it can't be lost: the thread looks at the queue and starts waiting under
  // that mutex.
  void wakeUp();
  // Held for as long as a call runs: lock it to wait out a running call.
  std::mutex& getActiveCallMutex() const { return m_activeCallMutex; }

 private:
  CallThread(const CallThread&);
  CallThread& operator=(const CallThread&);

  mutable std::mutex m_activeCallMutex;
  Call* m_activeCall;
  std::thread* m_thread;
  std::mutex m_waitMutex;            // the thread holds it for its whole life, once the constructor is done
  std::condition_variable m_wakeUp;  // waited on with the queue's mutex
  bool m_idle;
  const std::chrono::nanoseconds m_idleTimeout;
};

}  // namespace zq
