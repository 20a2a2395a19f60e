// Memory for the arguments of emissions. An emission allocates its arguments and, for
// direct slots, frees them before it returns: each thread keeps a few freed blocks for its
// next emissions instead of going through malloc every time.
#pragma once

#include <zq/Export.h>

#include <cstddef>

namespace zq {
namespace internal {

// A block of at least `size` bytes; bad_alloc when there is none. Thread-safe.
ZQ_API void* allocateArgumentMemory(std::size_t size);
// Gives back a block of allocateArgumentMemory with the same `size`, on any thread.
ZQ_API void freeArgumentMemory(void* block, std::size_t size) noexcept;

template <class T>
struct ArgumentAllocator {
  typedef T value_type;
  ArgumentAllocator() noexcept {}
  template <class U>
  ArgumentAllocator(const ArgumentAllocator<U>&) noexcept {}
  T* allocate(std::size_t n) { return static_cast<T*>(allocateArgumentMemory(n * sizeof(T))); }
  void deallocate(T* p, std::size_t n) noexcept { freeArgumentMemory(p, n * sizeof(T)); }
  bool operator==(const ArgumentAllocator&) const noexcept { return true; }
  bool operator!=(const ArgumentAllocator&) const noexcept { return false; }
};

}  // namespace internal
}  // namespace zq
