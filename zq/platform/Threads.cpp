#include <zq/platform/Threads.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <system_error>
#include <type_traits>

#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zq {
namespace platform {

unsigned long currentThreadId() { return static_cast<unsigned long>(::gettid()); }

void futexWait(std::atomic<int>& word, int expected) {
  static_assert(sizeof(std::atomic<int>) == sizeof(int), "the kernel waits on a plain int");
  ::syscall(SYS_futex, reinterpret_cast<int*>(&word), FUTEX_WAIT_PRIVATE, expected, nullptr, nullptr, 0);
}

void futexWake(std::atomic<int>& word, int count) {
  ::syscall(SYS_futex, reinterpret_cast<int*>(&word), FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

void ManualResetEvent::set() {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_set = true;
  m_changed.notify_all();
}

void ManualResetEvent::reset() {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_set = false;
}

void ManualResetEvent::wait() {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_changed.wait(lock, [this] { return m_set; });
}

struct SuspendedThread {
  enum Gate { Closed, Open, Cancelled };

  ThreadEntry entry = nullptr;
  void* argument = nullptr;
  pthread_t handle{};

  std::mutex mutex;
  std::condition_variable changed;
  bool idKnown = false;
  unsigned long id = 0;
  Gate gate = Closed;
};

namespace {

// noexcept: an exception that escapes the entry function ends the process, as an
// unhandled exception in a thread does on every platform the library runs on.
void* threadMain(void* argument) noexcept {
  SuspendedThread& thread = *static_cast<SuspendedThread*>(argument);
  {
    std::unique_lock<std::mutex> lock(thread.mutex);
    thread.id = currentThreadId();
    thread.idKnown = true;
    thread.changed.notify_all();
    thread.changed.wait(lock, [&thread] { return thread.gate != SuspendedThread::Closed; });
    if (thread.gate == SuspendedThread::Cancelled) return nullptr;
  }
  thread.entry(thread.argument);
  return nullptr;
}

// pthread refuses sizes below its minimum; a small request is a wish for a small stack, so it
// is rounded up to that minimum, in whole pages, rather than refused.
std::size_t acceptableStackSize(std::size_t requested) {
  const std::size_t minimum = static_cast<std::size_t>(PTHREAD_STACK_MIN);
  const std::size_t page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  const std::size_t size = std::max(requested, minimum);
  return (size + page - 1) / page * page;
}

}  // namespace

SuspendedThread* createSuspendedThread(std::size_t stackSize, ThreadEntry entry, void* argument,
                                       unsigned long& o_threadId) {
  pthread_attr_t attributes;
  if (::pthread_attr_init(&attributes) != 0) return nullptr;
  if (stackSize != 0 && ::pthread_attr_setstacksize(&attributes, acceptableStackSize(stackSize)) != 0) {
    ::pthread_attr_destroy(&attributes);
    return nullptr;
  }
  SuspendedThread* thread = new SuspendedThread;
  thread->entry = entry;
  thread->argument = argument;
  const int created = ::pthread_create(&thread->handle, &attributes, &threadMain, thread);
  ::pthread_attr_destroy(&attributes);
  if (created != 0) {
    delete thread;
    return nullptr;
  }
  // The id exists only once the thread runs; it reports it before waiting at the gate.
  std::unique_lock<std::mutex> lock(thread->mutex);
  thread->changed.wait(lock, [thread] { return thread->idKnown; });
  o_threadId = thread->id;
  return thread;
}

void resumeThread(SuspendedThread* thread) {
  std::lock_guard<std::mutex> lock(thread->mutex);
  if (thread->gate == SuspendedThread::Closed) thread->gate = SuspendedThread::Open;
  thread->changed.notify_all();
}

bool joinThread(SuspendedThread* thread) {
  if (::pthread_equal(thread->handle, ::pthread_self())) return false;
  {
    std::lock_guard<std::mutex> lock(thread->mutex);
    if (thread->gate == SuspendedThread::Closed) thread->gate = SuspendedThread::Cancelled;
    thread->changed.notify_all();
  }
  if (::pthread_join(thread->handle, nullptr) != 0) return false;
  delete thread;
  return true;
}

int niceValueFor(int priority) {
  // Offsets from the process's nice value; a lower nice value means more processor time,
  // each step about 25% more weight against the threads around it.
  static const int k_offsets[7] = {
      19,   // Idle: as far down as Linux goes, so the thread runs when nothing else wants to
      10,   // Lowest: a clear step below the rest of the program, but not starved
      5,    // BelowNormal: a mild yield, about a third of a normal thread's share
      0,    // Normal: the process's own value, what a new thread has anyway
      -5,   // AboveNormal: the mirror of BelowNormal; needs privileges
      -10,  // Highest: the mirror of Lowest; needs privileges
      -20,  // TimeCritical: the strongest nice value. Real-time scheduling is deliberately not
            // used: a busy thread under it can lock up the whole machine.
  };
  const int offset = priority >= 0 && priority < 7 ? k_offsets[priority] : 0;
  errno = 0;
  int base = ::getpriority(PRIO_PROCESS, static_cast<id_t>(::getpid()));
  if (errno != 0) base = 0;
  return std::min(19, std::max(-20, base + offset));
}

bool setThreadNiceValue(unsigned long threadId, int nice) {
  // On Linux PRIO_PROCESS with a thread id changes that one thread only.
  return ::setpriority(PRIO_PROCESS, static_cast<id_t>(threadId), nice) == 0;
}

void sleepMilliseconds(unsigned int milliseconds) {
  if (milliseconds == 0) {
    ::sched_yield();
    return;
  }
  if (milliseconds == 0xFFFFFFFFu) {
    for (;;) ::pause();
  }
  timespec remaining{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
  while (::nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
  }
}

static_assert(std::is_same<pthread_key_t, unsigned int>::value, "ThreadEndSlot keeps the key as unsigned int");

ThreadEndSlot::ThreadEndSlot(void (*end)(void* value)) {
  pthread_key_t key;
  if (::pthread_key_create(&key, end) != 0)
    throw std::system_error(errno, std::generic_category(), "pthread_key_create");
  m_key = key;
}

void ThreadEndSlot::set(void* value) { ::pthread_setspecific(m_key, value); }

}  // namespace platform
}  // namespace zq
