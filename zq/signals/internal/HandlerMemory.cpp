#include <zq/signals/internal/HandlerMemory.h>

#include <boost/lockfree/stack.hpp>

#include <new>

namespace zq {
namespace internal {
namespace {

// Blocks of one size, enough for a handler with its frame; larger
// requests go to operator new. At most kKept blocks wait for reuse.
constexpr std::size_t kBlockSize = 256;
constexpr std::size_t kKept = 1024;

boost::lockfree::stack<void*>& freeBlocks() {
  // Never destroyed: run loop threads still free blocks while the process's exit hooks run.
  static boost::lockfree::stack<void*>* const s_free = new boost::lockfree::stack<void*>(kKept);
  return *s_free;
}

}  // namespace

void* allocateHandlerMemory(std::size_t size) {
  if (size > kBlockSize) return ::operator new(size);
  void* block = nullptr;
  return freeBlocks().pop(block) ? block : ::operator new(kBlockSize);
}

void freeHandlerMemory(void* block, std::size_t size) {
  if (block == nullptr) return;
  if (size > kBlockSize || !freeBlocks().bounded_push(block)) ::operator delete(block);
}

}  // namespace internal
}  // namespace zq
