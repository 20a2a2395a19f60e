// Memory for the handlers of queued and delayed deliveries: made on
// the emitting thread, freed on a run loop's. malloc would take the emitter's arena lock for
// each such free; these blocks go back to a short list of their own instead.
#pragma once

#include <cstddef>

namespace zq {
namespace internal {

// A block of at least `size` bytes; bad_alloc when there is none. Thread-safe.
void* allocateHandlerMemory(std::size_t size);
// Gives back a block of allocateHandlerMemory with the same `size`, on any thread.
void freeHandlerMemory(void* block, std::size_t size);

template <class T>
struct HandlerAllocator {
  typedef T value_type;
  HandlerAllocator() noexcept {}
  template <class U>
  HandlerAllocator(const HandlerAllocator<U>&) noexcept {}
  T* allocate(std::size_t n) { return static_cast<T*>(allocateHandlerMemory(n * sizeof(T))); }
  void deallocate(T* p, std::size_t n) { freeHandlerMemory(p, n * sizeof(T)); }
  bool operator==(const HandlerAllocator&) const noexcept { return true; }
  bool operator!=(const HandlerAllocator&) const noexcept { return false; }
};

}  // namespace internal
}  // namespace zq
