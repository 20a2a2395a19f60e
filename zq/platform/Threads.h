// Threads on Linux: thread ids, a manual-reset event, threads that start behind a gate,
// per-thread nice values and sleeping.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace zq {
namespace platform {

// The kernel's id of the calling thread (gettid), the number `ps -L` and setpriority use.
unsigned long currentThreadId();

// Sleeps while `word` holds `expected`; may return early, so callers test again.
void futexWait(std::atomic<int>& word, int expected);
// Wakes up to `count` threads sleeping on `word`.
void futexWake(std::atomic<int>& word, int count);

// An event that, once set, stays set for every waiter until it is reset.
class ManualResetEvent {
 public:
  void set();
  void reset();
  // Blocks until the event is set; returns at once if it already is.
  void wait();

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_set = false;
};

// A thread created suspended: it exists and has its id, but its entry function runs only
// after resumeThread. That leaves the creator time to give it its priority first.
struct SuspendedThread;
typedef unsigned long (*ThreadEntry)(void* argument);

// Creates the thread with `stackSize` bytes of stack (0: the default; small sizes are
// rounded up to what the system accepts) and stores its id. Null when it can't be created.
SuspendedThread* createSuspendedThread(std::size_t stackSize, ThreadEntry entry, void* argument,
                                       unsigned long& o_threadId);
void resumeThread(SuspendedThread* thread);
// Waits for the thread's end and frees `thread`. A thread never resumed ends without running
// its entry, so the wait can't hang. False, with `thread` still valid, when the wait is
// impossible (a thread waiting for itself).
bool joinThread(SuspendedThread* thread);

// The nice value for one of the seven thread priorities (0 Idle ... 6 TimeCritical); any other
// value is normal. Relative to the process's own nice value, clamped to what Linux allows.
int niceValueFor(int priority);
// Sets the nice value of one thread; false when Linux refuses (raising needs privileges).
bool setThreadNiceValue(unsigned long threadId, int nice);

// 0 yields the processor, 0xFFFFFFFF sleeps for ever, anything else sleeps that many
// milliseconds, also across signals.
void sleepMilliseconds(unsigned int milliseconds);

// Per-thread data whose `end` runs at each thread's end, after the thread's C++ thread-local
// objects: their destructors may still use it. If `end` leads to a new value being set, it
// runs again for that one. Not at the end of the process's main thread.
class ThreadEndSlot {
 public:
  explicit ThreadEndSlot(void (*end)(void* value));
  ThreadEndSlot(const ThreadEndSlot&) = delete;
  ThreadEndSlot& operator=(const ThreadEndSlot&) = delete;
  // The calling thread's value; null takes it back without calling `end`.
  void set(void* value);

 private:
  unsigned int m_key;
};

}  // namespace platform
}  // namespace zq
