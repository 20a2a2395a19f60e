// Threads for clients: Runnable, the body, and Thread, one operating-system thread around it.
#pragma once

#include <zq/Export.h>

#include <cstddef>

namespace zq {

namespace platform {
struct SuspendedThread;
}

// The body of a Thread. A thread ends by returning from run; a body that must be stoppable
// offers its own way to be told.
class ZQ_API Runnable {
 public:
  Runnable() {}
  Runnable(const Runnable&) {}
  Runnable& operator=(const Runnable&) { return *this; }
  virtual ~Runnable() {}

  virtual void run() = 0;
};

// One operating-system thread running a Runnable, which it does not own and which must
// outlive the thread.
//
// The settings can change only while no thread exists, that is before start and after wait.
// Breaking that rule is reported as a Critical log line (assert_log_error_x) and changes
// nothing; it throws nothing. The thread starts held at a gate until its priority is in
// force. An exception escaping run is written to the log at Critical and then ends the
// process.
//
// Not synchronised: one thread at a time manages a Thread object. The new thread only reads
// the Runnable pointer.
class ZQ_API Thread {
 public:
  // Linux nice values relative to the process's own: Idle +19, Lowest +10, BelowNormal +5,
  // Normal 0, AboveNormal -5, Highest -10, TimeCritical -20, clamped to -20..19. Raising a
  // thread above what it has needs privileges (CAP_SYS_NICE or RLIMIT_NICE). Inherit keeps
  // the creating thread's value.
  enum EThreadPriority { Idle, Lowest, BelowNormal, Normal, AboveNormal, Highest, TimeCritical, Inherit };

  static const unsigned long long k_forever;

  explicit Thread(Runnable* runnable = nullptr);
  // Waits for the thread to end; a failing wait ends the process.
  virtual ~Thread();  // NOLINT(bugprone-exception-escape)

  // Sets the priority (unless Inherit) before the body begins. Throws RuntimeError when the
  // thread can't be created or its priority can't be set; in the second case the thread
  // exists but never runs its body, and wait() ends it.
  void start(const EThreadPriority& priority = Inherit);
  // Blocks until the thread has ended, then forgets it; true at once if none exists. Throws
  // RuntimeError when the wait is impossible (a thread waiting for itself).
  bool wait();

  void setRunnable(Runnable* runnable);
  void setStackSize(std::size_t stackSize);  // 0: the system's default; small sizes are rounded up
  // On a running thread, the priority it has is silently accepted and any other is reported.
  void setPriority(const EThreadPriority& priority);

  Runnable* runnable() { return m_runnable; }
  const Runnable* runnable() const { return m_runnable; }
  std::size_t stackSize() const { return m_stackSize; }
  const EThreadPriority& priority() const { return m_priority; }
  // The kernel's id of the last thread started.
  unsigned long threadId() const { return m_threadId; }

  // Sleeps the calling thread: 0 gives up the time slice, 0xFFFFFFFF sleeps for ever.
  static void mssleep(unsigned int milliseconds);

 private:
  Thread(const Thread&);
  Thread& operator=(const Thread&);

  void updatePriority();
  static unsigned long worker(void* thread_object);

  Runnable* m_runnable;
  EThreadPriority m_priority;
  std::size_t m_stackSize;
  platform::SuspendedThread* m_handle;
  unsigned long m_threadId;
};

}  // namespace zq
