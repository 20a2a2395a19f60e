#include <zq/signals/internal/SignalMemory.h>

#include <atomic>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

namespace zq {
namespace internal {
namespace {

// Blocks of one size, enough for a handler with its frame or a few arguments; larger requests
// go to operator new. Under the address sanitizer nothing is kept, so that it sees every
// block come and go.
constexpr std::size_t kBlockSize = 256;
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kKeep = false;
#else
constexpr bool kKeep = true;
#endif
constexpr std::size_t kBatch = 16;                // blocks traded with the store at once
constexpr std::size_t kThreadKept = 2 * kBatch;   // by each thread
constexpr std::size_t kSharedKept = 64 * kBatch;  // in the store

// Held for one trade of a batch, as a rule by an emitting thread and a run loop's thread in
// turn: a sleeping mutex would put one of them to sleep for a few instructions of the other.
class SpinLock {
 public:
  void lock() {
    for (int spins = 0; m_locked.exchange(true, std::memory_order_acquire);) {
      while (m_locked.load(std::memory_order_relaxed))
        if (++spins % 64 == 0) std::this_thread::yield();  // the holder may not be running
    }
  }
  void unlock() { m_locked.store(false, std::memory_order_release); }

 private:
  std::atomic<bool> m_locked{false};
};

struct SharedBlocks {
  SharedBlocks() { blocks.reserve(kSharedKept); }
  SpinLock lock;
  std::vector<void*> blocks;
};

SharedBlocks& sharedBlocks() {
  // Never destroyed: run loop threads still free blocks while the process's exit hooks run.
  static SharedBlocks* const s_shared = new SharedBlocks();
  return *s_shared;
}

// A thread's freed blocks; they go to the store when the thread ends. A block freed after
// that (by a thread's last destructors) goes straight to operator delete.
struct ThreadBlocks {
  ~ThreadBlocks() {
    giveBack(count);
    ended = true;
  }

  // Moves up to `n` blocks from the store to this thread.
  void take(std::size_t n) {
    SharedBlocks& shared = sharedBlocks();
    std::lock_guard<SpinLock> lock(shared.lock);
    while (n-- != 0 && !shared.blocks.empty()) {
      blocks[count++] = shared.blocks.back();
      shared.blocks.pop_back();
    }
  }

  // Moves the last `n` blocks of this thread to the store, or to operator delete when it is full.
  void giveBack(std::size_t n) {
    {
      SharedBlocks& shared = sharedBlocks();
      std::lock_guard<SpinLock> lock(shared.lock);
      for (; n != 0 && shared.blocks.size() < kSharedKept; --n) shared.blocks.push_back(blocks[--count]);
    }
    for (; n != 0; --n) ::operator delete(blocks[--count]);
  }

  void* blocks[kThreadKept] = {};
  std::size_t count = 0;
  bool ended = false;
};

thread_local ThreadBlocks t_blocksRecord;
// The record's address: a thread-local word is quicker to reach than the record, which is
// made and registered for destruction on first use.
ZQ_TLS_WORD ThreadBlocks* t_blocks = nullptr;

ThreadBlocks& threadBlocks() {
  ThreadBlocks* blocks = t_blocks;
  if (blocks == nullptr) t_blocks = blocks = &t_blocksRecord;
  return *blocks;
}

}  // namespace

void* allocateSignalMemory(std::size_t size) {
  if (kKeep && size <= kBlockSize) {
    ThreadBlocks& mine = threadBlocks();
    if (mine.count == 0 && !mine.ended) mine.take(kBatch);
    if (mine.count != 0) return mine.blocks[--mine.count];
    size = kBlockSize;
  }
  return ::operator new(size);
}

void freeSignalMemory(void* block, std::size_t size) noexcept {
  if (block == nullptr) return;
  if (kKeep && size <= kBlockSize) {
    ThreadBlocks& mine = threadBlocks();
    if (!mine.ended) {
      if (mine.count == kThreadKept) mine.giveBack(kBatch);
      mine.blocks[mine.count++] = block;
      return;
    }
  }
  ::operator delete(block);
}

}  // namespace internal
}  // namespace zq
