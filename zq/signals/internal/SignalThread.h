// Each thread's record of its emissions: its call stack with the frames it reuses, the
// signal memory blocks it keeps, and its spare argument space. One record, reached through one
// thread-local word, made on first use and ended after the thread's C++ thread-local objects,
// whose destructors may still emit; what an emission or a release needs after that end finds
// a fresh record, ended in turn. Library-private.
#pragma once

#include <zq/signals/Argument.h>
#include <zq/signals/internal/EmissionCache.h>
#include <zq/signals/internal/FrameStack.h>

#include <cstddef>
#include <memory>

// A thread-local word of the library, reached in one instruction (initial-exec model) instead
// of a call. It takes static TLS room, which a library loaded by dlopen gets from the C
// library's reserve as long as such words stay few.
#if defined(__GNUC__) || defined(__clang__)
#define ZQ_TLS_WORD __attribute__((tls_model("initial-exec"))) __thread
#else
#define ZQ_TLS_WORD thread_local
#endif

namespace zq {
namespace internal {

// The signal memory blocks of one size that a thread keeps (SignalMemory.cpp); they go to
// the shared store of that size with the record.
struct ThreadBlocks {
  static constexpr std::size_t kKept = 32;

  explicit ThreadBlocks(std::size_t size) : blockSize(size) {}
  ThreadBlocks(const ThreadBlocks&) = delete;
  ThreadBlocks& operator=(const ThreadBlocks&) = delete;
  ~ThreadBlocks() { giveBack(count); }

  // Moves up to `n` blocks from the store to this thread.
  void take(std::size_t n);
  // Moves the last `n` blocks of this thread to the store, or to operator delete when it is full.
  void giveBack(std::size_t n);

  const std::size_t blockSize;
  void* blocks[kKept] = {};
  std::size_t count = 0;
};

struct SignalThread {
  // One argument made by hand; handlers and a few arguments; an argument space, or many
  // arguments.
  static constexpr std::size_t kTinyBlock = 64, kSmallBlock = 256, kLargeBlock = 768;

  // The kept blocks for `size` bytes, or null when no kept size is large enough.
  ThreadBlocks* blocksFor(std::size_t size) {
    return size <= kTinyBlock ? &tiny : size <= kSmallBlock ? &small : size <= kLargeBlock ? &large : nullptr;
  }

  // Members end in reverse order: the frames first, as what they let go of may free blocks.
  ThreadBlocks tiny{kTinyBlock}, small{kSmallBlock}, large{kLargeBlock};
  std::shared_ptr<ArgumentVector> spareArguments;  // see spareArgumentSpace()
  EmissionCache emissions;
  ThreadFrames frames;
};

extern ZQ_TLS_WORD SignalThread* t_signalThread;
SignalThread& newSignalThread();

// The calling thread's record, made on first use.
inline SignalThread& signalThread() {
  SignalThread* thread = t_signalThread;
  return thread != nullptr ? *thread : newSignalThread();
}
inline ThreadFrames& threadFrames() { return signalThread().frames; }

}  // namespace internal
}  // namespace zq
