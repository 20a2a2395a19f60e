// Secure strings: the allocator that wipes what it gives back, the string that every key, pass
// phrase, digest and plain text of the cryptography layer travels in, and the wipe itself.
#pragma once

#include <zq/Export.h>

#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

namespace zq {
namespace crypto {

// Fills `size` bytes at `p` with zero. A call the optimiser must keep, even on memory that is
// freed right after.
ZQ_API void zeroOut(void* p, std::size_t size);

// Draws from the C heap and wipes each buffer before it goes back. Stateless: any two compare
// equal, so strings and vectors over it move and swap as over std::allocator. Memory the heap
// refuses throws std::bad_alloc, so no container runs on a null pointer.
template <class T>
class secure_allocator {
 public:
  using value_type = T;
  using pointer = T*;
  using const_pointer = const T*;
  using reference = T&;
  using const_reference = const T&;
  using size_type = std::size_t;
  using difference_type = std::ptrdiff_t;
  using propagate_on_container_move_assignment = std::true_type;
  using is_always_equal = std::true_type;

  template <class U>
  struct rebind {
    using other = secure_allocator<U>;
  };

  secure_allocator() noexcept = default;
  template <class U>
  secure_allocator(const secure_allocator<U>&) noexcept {}

  T* allocate(std::size_t n) {
    if (n > static_cast<std::size_t>(-1) / sizeof(T)) throw std::bad_array_new_length();
    T* p = static_cast<T*>(std::malloc(n * sizeof(T)));
    if (p == nullptr && n != 0) throw std::bad_alloc();
    return p;
  }
  void deallocate(T* p, std::size_t n) noexcept {
    zeroOut(p, n * sizeof(T));
    std::free(p);
  }
  template <class U>
  void destroy(U* p) noexcept {
    p->~U();
    zeroOut(p, sizeof(U));
  }

  template <class U>
  bool operator==(const secure_allocator<U>&) const noexcept {
    return true;
  }
  template <class U>
  bool operator!=(const secure_allocator<U>&) const noexcept {
    return false;
  }
};

// What passes through the allocator is wiped; a value short enough for the string's own small
// buffer never does, and is left as it stood.
using secure_string = std::basic_string<char, std::char_traits<char>, secure_allocator<char>>;
using secure_bytes = std::vector<unsigned char, secure_allocator<unsigned char>>;

// `a` with `b` appended; the parameter's own copy is wiped as it goes.
ZQ_API secure_string operator+(secure_string a, const std::string& b);

}  // namespace crypto
}  // namespace zq
