#include <zq/threads/Thread.h>

#include <zq/foundation/Assert.h>
#include <zq/foundation/Exception.h>
#include <zq/foundation/Log.h>
#include <zq/platform/Threads.h>

#include <exception>
#include <ostream>
#include <string>

namespace zq {

namespace {

// The signatures are part of the texts that clients and their log readers match on.
const char* const k_setRunnable = "void __cdecl zq::Thread::setRunnable(class zq::Runnable *)";
const char* const k_setStackSize = "void __cdecl zq::Thread::setStackSize(unsigned __int64)";
const char* const k_setPriority = "void __cdecl zq::Thread::setPriority(const enum zq::Thread::EThreadPriority &)";
const char* const k_start = "void __cdecl zq::Thread::start(const enum zq::Thread::EThreadPriority &)";
const char* const k_updatePriority = "void __cdecl zq::Thread::updatePriority(void)";
const char* const k_wait = "bool __cdecl zq::Thread::wait(void)";
const char* const k_worker = "unsigned long __cdecl zq::Thread::worker(void *)";

const char* const k_mayNotBeRunning = "Thread may not be running!";
const char* const k_startWhileRunning = "Thread my not be running";

void report(const char* signature, const char* what, const char* condition) {
  const std::wstring where = wconvert(signature);
  assert_log_error_x(where, wconvert(what), wconvert(condition), where);
}

void reportRunning(const char* signature, const char* what) { report(signature, what, "( 0 == m_handle )"); }

// Streams an exception with its causes into a log line.
struct WithCauses {
  const Exception& exception;
};
std::wostream& operator<<(std::wostream& os, const WithCauses& e) { return e.exception.writeTo(os); }

}  // namespace

const unsigned long long Thread::k_forever = 0xFFFFFFFFFFFFFFFFull;

Thread::Thread(Runnable* runnable)
    : m_runnable(runnable), m_priority(Idle), m_stackSize(0), m_handle(nullptr), m_threadId(0) {}

// A failing wait ends the process here, on purpose: a thread may not outlive its object.
Thread::~Thread() { wait(); }  // NOLINT(bugprone-exception-escape)

void Thread::start(const EThreadPriority& priority) {
  setPriority(priority);  // on a running thread with another priority this reports too
  if (m_handle) {
    reportRunning(k_start, k_startWhileRunning);
    return;
  }
  m_handle = platform::createSuspendedThread(m_stackSize, &Thread::worker, this, m_threadId);
  if (!m_handle) throw RuntimeError(std::string(k_start) + " Starting thread failed");
  // Inherit leaves the new thread with the creator's priority.
  if (m_priority != Inherit) updatePriority();
  platform::resumeThread(m_handle);
}

bool Thread::wait() {
  if (!m_handle) return true;
  if (!platform::joinThread(m_handle)) throw RuntimeError(std::string(k_wait) + " Waiting on thread failed");
  m_handle = nullptr;
  return true;
}

void Thread::setRunnable(Runnable* runnable) {
  if (m_handle) {
    reportRunning(k_setRunnable, k_mayNotBeRunning);
    return;
  }
  m_runnable = runnable;
}

void Thread::setStackSize(std::size_t stackSize) {
  if (m_handle) {
    reportRunning(k_setStackSize, k_mayNotBeRunning);
    return;
  }
  m_stackSize = stackSize;
}

void Thread::setPriority(const EThreadPriority& priority) {
  if (m_handle) {
    if (priority != m_priority) reportRunning(k_setPriority, k_mayNotBeRunning);
    return;
  }
  m_priority = priority;
  updatePriority();
}

void Thread::updatePriority() {
  if (!m_handle) return;
  if (!platform::setThreadNiceValue(m_threadId, platform::niceValueFor(m_priority)))
    throw RuntimeError(std::string(k_updatePriority) + " Changing thread priority failed!");
}

void Thread::mssleep(unsigned int milliseconds) { platform::sleepMilliseconds(milliseconds); }

unsigned long Thread::worker(void* thread_object) {
  if (!thread_object) {
    report(k_worker, "thread_object not set!", "( 0 != thread_object )");
    return 0;
  }
  Runnable* runnable = static_cast<Thread*>(thread_object)->runnable();
  if (!runnable) {
    report(k_worker, "Runnable must be set!", "( 0 != static_cast<Thread *>(thread_object)->runnable() )");
    return 0;
  }
  // Logged, then thrown on: leaving the thread's entry function ends the process.
  try {
    runnable->run();
  } catch (const Exception& e) {
    ZQ_LOG(Log::Critical, "zq::Thread::worker", k_worker << ": Unhandled exception - " << WithCauses{e});
    throw;
  } catch (const std::exception& e) {
    ZQ_LOG(Log::Critical, "zq::Thread::worker", k_worker << ": Unhandled exception - " << e.what());
    throw;
  } catch (...) {
    ZQ_LOG(Log::Critical, "zq::Thread::worker", k_worker << ": Unhandled exception");
    throw;
  }
  return 0;
}

}  // namespace zq
