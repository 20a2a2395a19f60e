#include <zq/signals/internal/HandlerMemory.h>

#include <mutex>
#include <new>
#include <vector>

namespace zq {
namespace internal {
namespace {

// Blocks of one size, enough for a handler with its frame; larger requests go to operator
// new. At most kKept blocks wait for reuse.
constexpr std::size_t kBlockSize = 256;
constexpr std::size_t kKept = 1024;

struct FreeBlocks {
  FreeBlocks() { blocks.reserve(kKept); }
  std::mutex mutex;  // held for a push or a pop only
  std::vector<void*> blocks;
};

FreeBlocks& freeBlocks() {
  // Never destroyed: run loop threads still free blocks while the process's exit hooks run.
  static FreeBlocks* const s_free = new FreeBlocks();
  return *s_free;
}

}  // namespace

void* allocateHandlerMemory(std::size_t size) {
  if (size > kBlockSize) return ::operator new(size);
  FreeBlocks& free = freeBlocks();
  {
    std::lock_guard<std::mutex> lock(free.mutex);
    if (!free.blocks.empty()) {
      void* block = free.blocks.back();
      free.blocks.pop_back();
      return block;
    }
  }
  return ::operator new(kBlockSize);
}

void freeHandlerMemory(void* block, std::size_t size) {
  if (block == nullptr) return;
  if (size <= kBlockSize) {
    FreeBlocks& free = freeBlocks();
    std::lock_guard<std::mutex> lock(free.mutex);
    if (free.blocks.size() < kKept) {
      free.blocks.push_back(block);
      return;
    }
  }
  ::operator delete(block);
}

}  // namespace internal
}  // namespace zq
