// What the signal system tells the sanitizers that they cannot see for themselves: memory it
// keeps for reuse, and orderings made by fences. Outside sanitizer builds, nothing.
#pragma once

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define ZQ_INTERNAL_ASAN 1
#endif
#if defined(__SANITIZE_THREAD__)
#define ZQ_INTERNAL_TSAN 1
#endif
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZQ_INTERNAL_ASAN 1
#endif
#if __has_feature(thread_sanitizer)
#define ZQ_INTERNAL_TSAN 1
#endif
#endif

#if defined(ZQ_INTERNAL_ASAN)
#include <sanitizer/asan_interface.h>
#endif
#if defined(ZQ_INTERNAL_TSAN)
#include <sanitizer/tsan_interface.h>
#endif

namespace zq {
namespace internal {

// Memory parked for reuse: the address sanitizer reports every access until it is unparked.
inline void parkMemory(const void* memory, std::size_t size) {
#if defined(ZQ_INTERNAL_ASAN)
  ASAN_POISON_MEMORY_REGION(memory, size);
#else
  (void)memory, (void)size;
#endif
}
inline void unparkMemory(const void* memory, std::size_t size) {
#if defined(ZQ_INTERNAL_ASAN)
  ASAN_UNPOISON_MEMORY_REGION(memory, size);
#else
  (void)memory, (void)size;
#endif
}

// A std::mutex about to die: the thread sanitizer otherwise takes the next mutex at the same
// address for the same one, and reports lock orders that never met.
inline void forgetMutex(void* mutex) {
#if defined(ZQ_INTERNAL_TSAN)
  __tsan_mutex_destroy(mutex, 0);
#else
  (void)mutex;
#endif
}

}  // namespace internal
}  // namespace zq
