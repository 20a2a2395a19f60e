#include <zq/signals/internal/SignalMemory.h>

#include <zq/signals/internal/SignalThread.h>
#include <zq/signals/internal/SpinLock.h>

#include <atomic>
#include <mutex>
#include <new>
#include <vector>

namespace zq {
namespace internal {
namespace {

constexpr std::size_t kBatch = ThreadBlocks::kKept / 2;  // blocks traded with a store at once
constexpr std::size_t kSharedKept = 64 * kBatch;         // in each store

struct SharedBlocks {
  SharedBlocks() { blocks.reserve(kSharedKept); }
  SpinLock lock;
  std::vector<void*> blocks;
};

// The store of blocks of `size` bytes, one of the sizes kept.
SharedBlocks& sharedBlocks(std::size_t size) {
  // Never destroyed: run loop threads still free blocks while the process's exit hooks run.
  static SharedBlocks* const s_tiny = new SharedBlocks();
  static SharedBlocks* const s_small = new SharedBlocks();
  static SharedBlocks* const s_large = new SharedBlocks();
  return size == SignalThread::kTinyBlock ? *s_tiny : size == SignalThread::kSmallBlock ? *s_small : *s_large;
}

}  // namespace

void ThreadBlocks::take(std::size_t n) {
  SharedBlocks& shared = sharedBlocks(blockSize);
  std::lock_guard<SpinLock> lock(shared.lock);
  while (n-- != 0 && !shared.blocks.empty()) {
    blocks[count++] = shared.blocks.back();
    shared.blocks.pop_back();
  }
}

void ThreadBlocks::giveBack(std::size_t n) {
  {
    SharedBlocks& shared = sharedBlocks(blockSize);
    std::lock_guard<SpinLock> lock(shared.lock);
    for (; n != 0 && shared.blocks.size() < kSharedKept; --n) shared.blocks.push_back(blocks[--count]);
  }
  for (; n != 0; --n) {
    void* block = blocks[--count];
    unparkMemory(block, blockSize);
    ::operator delete(block);
  }
}

void* allocateSignalMemory(std::size_t size) {
  ThreadBlocks* mine = signalThread().blocksFor(size);
  if (mine == nullptr) return ::operator new(size);
  if (mine->count == 0) mine->take(kBatch);
  if (mine->count == 0) return ::operator new(mine->blockSize);
  void* block = mine->blocks[--mine->count];
  unparkMemory(block, size);
  return block;
}

void freeSignalMemory(void* block, std::size_t size) noexcept {
  if (block == nullptr) return;
  if (size > SignalThread::kLargeBlock) return ::operator delete(block);
  SignalThread* thread = t_signalThread;
  if (thread == nullptr) {
    try {
      thread = &newSignalThread();
    } catch (...) {  // no room for a record: nothing kept
      return ::operator delete(block);
    }
  }
  ThreadBlocks& mine = *thread->blocksFor(size);
  if (mine.count == ThreadBlocks::kKept) mine.giveBack(kBatch);
  parkMemory(block, mine.blockSize);
  mine.blocks[mine.count++] = block;
}

}  // namespace internal
}  // namespace zq
