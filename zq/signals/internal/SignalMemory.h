// Memory for what emissions make and let go of at a high rate: arguments, argument blocks and
// the handlers of queued and delayed deliveries. A block is often made on one thread and freed
// on another (the emitter's, a run loop's); each thread keeps a few freed blocks of three
// sizes, and threads trade them in batches through a shared store of each size, so that
// neither malloc's locks nor a lock per block are paid. Larger requests go to operator new.
// Kept blocks are parked for the address sanitizer, which so sees the same reuse as a
// release build.
#pragma once

#include <zq/Export.h>
#include <zq/signals/internal/Sanitizers.h>

#include <cstddef>

namespace zq {
namespace internal {

// A block of at least `size` bytes; bad_alloc when there is none. Thread-safe.
ZQ_API void* allocateSignalMemory(std::size_t size);
// Gives back a block of allocateSignalMemory with the same `size`, on any thread.
ZQ_API void freeSignalMemory(void* block, std::size_t size) noexcept;

template <class T>
struct SignalAllocator {
  typedef T value_type;
  SignalAllocator() noexcept {}
  template <class U>
  SignalAllocator(const SignalAllocator<U>&) noexcept {}
  T* allocate(std::size_t n) {
    void* block = allocateSignalMemory(n * sizeof(T));
    unparkMemory(block, n * sizeof(T));  // also when only the caller's code is sanitized
    return static_cast<T*>(block);
  }
  void deallocate(T* p, std::size_t n) noexcept { freeSignalMemory(p, n * sizeof(T)); }
  bool operator==(const SignalAllocator&) const noexcept { return true; }
  bool operator!=(const SignalAllocator&) const noexcept { return false; }
};

}  // namespace internal
}  // namespace zq
