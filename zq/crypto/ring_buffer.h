// A circular store for the streaming cipher: bytes go in and out in contiguous pieces, worked on
// in place, without a copy.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace zq {

// A vector with a read index `head` and a write index `tail`. It is empty when they are equal,
// so one slot stays unused: a capacity of c holds c - 1 elements. The free and the filled space
// are each at most two contiguous pieces; the work is done on the first: take a range, fill or
// read it, then commit() or consume() what was used. Not thread-safe.
template <class T, class Allocator = std::allocator<T>>
class ring_buffer {
 public:
  // A contiguous piece: pointer and length. Operations that take one by reference advance it by
  // what they used.
  using range_type = std::pair<T*, std::size_t>;

  explicit ring_buffer(std::size_t capacity) : m_data(std::max<std::size_t>(capacity, 2)) {}

  std::size_t capacity() const { return m_data.size(); }
  // Filled elements.
  std::size_t size() const { return m_tail >= m_head ? m_tail - m_head : m_data.size() - m_head + m_tail; }
  // Free elements, in both pieces.
  std::size_t available() const { return m_data.size() - 1 - size(); }
  bool empty() const { return m_head == m_tail; }
  bool full() const { return available() == 0; }
  // Drops the contents.
  void clear() { m_head = m_tail = 0; }

  // The first contiguous piece of free space, at the write index.
  range_type free_range() {
    std::size_t end = m_tail >= m_head ? m_data.size() : m_head - 1;
    if (m_head == 0 && m_tail >= m_head) --end;  // the unused slot sits at the very end
    return range_type(m_data.data() + m_tail, end - m_tail);
  }
  // The first contiguous piece of filled space, at the read index.
  range_type filled_range() {
    const std::size_t end = m_tail >= m_head ? m_tail : m_data.size();
    return range_type(m_data.data() + m_head, end - m_head);
  }

  // Marks `n` elements written at free_range() as filled; `n` is at most that range's length.
  void commit(std::size_t n) { m_tail = (m_tail + n) % m_data.size(); }
  // Marks `n` elements at filled_range() as read. An emptied ring starts again at its beginning,
  // so that its free space is one piece.
  void consume(std::size_t n) {
    m_head = (m_head + n) % m_data.size();
    if (m_head == m_tail) clear();
  }

  // A free piece of at least `n` elements. The contents move to the front when the free space
  // is split, and the ring grows to what is needed plus 16 when it is short; the order is kept.
  range_type reserve(std::size_t n) {
    range_type range = free_range();
    if (range.second >= n) return range;
    const std::size_t filled = size();
    const std::size_t needed = filled + n + 1;
    std::vector<T, Allocator> data(needed <= m_data.size() ? m_data.size() : needed + 16);
    T* out = data.data();
    for (range_type piece = filled_range(); piece.second != 0; piece = filled_range()) {
      out = std::copy(piece.first, piece.first + piece.second, out);
      consume(piece.second);
    }
    m_data.swap(data);
    m_head = 0;
    m_tail = filled;
    return free_range();
  }

  // Copies all of `in` in behind the contents, growing as reserve() does.
  void write(range_type& in) {
    while (in.second != 0) {
      range_type range = reserve(1);
      const std::size_t n = std::min(range.second, in.second);
      std::copy(in.first, in.first + n, range.first);
      commit(n);
      advance(in, n);
    }
  }

  static void advance(range_type& range, std::size_t n) {
    range.first += n;
    range.second -= n;
  }

 private:
  std::vector<T, Allocator> m_data;
  std::size_t m_head = 0;
  std::size_t m_tail = 0;
};

}  // namespace zq
