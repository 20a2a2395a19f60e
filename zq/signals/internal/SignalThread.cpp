#include <zq/signals/internal/SignalThread.h>

#include <zq/platform/Threads.h>
#include <zq/signals/internal/ArgumentBlock.h>

namespace zq {
namespace internal {

ZQ_TLS_WORD SignalThread* t_signalThread = nullptr;

namespace {

void endSignalThread(void* record) {
  auto* thread = static_cast<SignalThread*>(record);
  // A spare space holds no arguments: its end runs the library's code alone.
  thread->spareArguments.reset();
  // What the frames let go of may emit or free blocks: a fresh record serves that.
  t_signalThread = nullptr;
  delete thread;
}

platform::ThreadEndSlot& recordOwner() {
  // Never destroyed: threads may end while the process's exit hooks run.
  static auto* const s_owner = new platform::ThreadEndSlot(&endSignalThread);
  return *s_owner;
}

}  // namespace

SignalThread& newSignalThread() {
  auto* thread = new SignalThread();
  recordOwner().set(thread);
  t_signalThread = thread;
  return *thread;
}

// A space and its shared_ptr record come out of one kept block.
static_assert(sizeof(ArgumentSpace) + 32 <= SignalThread::kLargeBlock, "an argument space outgrew its block");

ArgumentSpace::ArgumentSpace() {}

ArgumentSpace::~ArgumentSpace() {
  unparkMemory(m_room, kSize);
  for (Argument*& argument : m_args) {
    if (argument != nullptr) argument->~Argument();
    argument = nullptr;  // built in place: the vector must not delete it
  }
}

std::shared_ptr<ArgumentVector>& spareArgumentSpace() { return signalThread().spareArguments; }

std::shared_ptr<ArgumentVector> newArgumentSpace() {
  return std::allocate_shared<ArgumentSpace>(SignalAllocator<ArgumentSpace>());
}

}  // namespace internal
}  // namespace zq
