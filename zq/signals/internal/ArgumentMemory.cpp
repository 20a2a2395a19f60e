#include <zq/signals/internal/ArgumentMemory.h>

#include <new>

namespace zq {
namespace internal {
namespace {

// Blocks of one size, enough for a few arguments with their vector and shared count; larger
// requests go to operator new. The address sanitizer sees every block come and go.
constexpr std::size_t kBlockSize = 256;
#if defined(__SANITIZE_ADDRESS__)
constexpr std::size_t kKept = 0;
#else
constexpr std::size_t kKept = 32;
#endif

// A thread's freed blocks, given back to operator delete when the thread ends. A block freed
// after that (by a thread's last destructors) goes straight to operator delete.
struct FreeBlocks {
  ~FreeBlocks() {
    while (count != 0) ::operator delete(blocks[--count]);
    ended = true;
  }
  void* blocks[kKept == 0 ? 1 : kKept] = {};
  std::size_t count = 0;
  bool ended = false;
};
thread_local FreeBlocks t_freeRecord;
// The record's address: a plain thread-local word is quicker to reach than the record, which
// is made and registered for destruction on first use.
thread_local FreeBlocks* t_free = nullptr;

FreeBlocks& freeBlocks() {
  FreeBlocks* free = t_free;
  if (free == nullptr) t_free = free = &t_freeRecord;
  return *free;
}

}  // namespace

void* allocateArgumentMemory(std::size_t size) {
  if (size <= kBlockSize) {
    FreeBlocks& free = freeBlocks();
    if (free.count != 0) return free.blocks[--free.count];
    size = kBlockSize;
  }
  return ::operator new(size);
}

void freeArgumentMemory(void* block, std::size_t size) noexcept {
  if (size <= kBlockSize) {
    FreeBlocks& free = freeBlocks();
    if (free.count < kKept && !free.ended) {
      free.blocks[free.count++] = block;
      return;
    }
  }
  ::operator delete(block);
}

}  // namespace internal
}  // namespace zq
