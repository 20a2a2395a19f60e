// Bit sets behind the secure heap's quick lookups: which sizes of free blocks are to be had, and
// which system pages belong to a heap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zq {
namespace internal {

// A set of the slots 0 to kSlots - 1, one bit each, with a second level of one bit per non-empty
// word, so that the first member at or after a slot is found in a few steps. kSlots is a multiple
// of 4096.
template <std::size_t kSlots>
class FreeSizeSet {
 public:
  bool contains(std::size_t slot) const { return (m_words[slot / 64] & bit(slot % 64)) != 0; }
  void insert(std::size_t slot) {
    m_words[slot / 64] |= bit(slot % 64);
    m_summary[slot / 4096] |= bit(slot / 64 % 64);
  }
  void erase(std::size_t slot) {
    m_words[slot / 64] &= ~bit(slot % 64);
    if (m_words[slot / 64] == 0) m_summary[slot / 4096] &= ~bit(slot / 64 % 64);
  }

  // The first member at or after `slot`; kSlots if there is none.
  std::size_t next(std::size_t slot) const {
    if (slot >= kSlots) return kSlots;
    const std::size_t word = slot / 64;
    const std::uint64_t here = m_words[word] & (~std::uint64_t(0) << (slot % 64));
    if (here != 0) return word * 64 + lowest(here);
    const std::size_t after = word + 1;
    for (std::size_t s = after / 64; s < kSummaries; ++s) {
      const std::uint64_t later = s == after / 64 ? m_summary[s] & (~std::uint64_t(0) << (after % 64)) : m_summary[s];
      if (later != 0) {
        const std::size_t found = s * 64 + lowest(later);
        return found * 64 + lowest(m_words[found]);
      }
    }
    return kSlots;
  }

  // Whether the second level agrees with the first, for checks.
  bool consistent() const {
    for (std::size_t w = 0; w < kWords; ++w)
      if ((m_words[w] != 0) != ((m_summary[w / 64] & bit(w % 64)) != 0)) return false;
    return true;
  }

 private:
  static_assert(kSlots % 4096 == 0, "whole summary words");
  static constexpr std::size_t kWords = kSlots / 64;
  static constexpr std::size_t kSummaries = kWords / 64;

  static constexpr std::uint64_t bit(std::size_t i) { return std::uint64_t(1) << i; }
  static std::size_t lowest(std::uint64_t w) { return static_cast<std::size_t>(__builtin_ctzll(w)); }

  std::uint64_t m_summary[kSummaries] = {};
  std::uint64_t m_words[kWords] = {};
};

// Marks on system pages, one bit per page, in chunks of 4 GiB of addresses made at first need
// (zero-filled by the system and touched only where marked). An address never marked reads false.
class OwnedPageSet {
 public:
  explicit OwnedPageSet(std::size_t pageSize);
  ~OwnedPageSet();
  OwnedPageSet(const OwnedPageSet&) = delete;
  OwnedPageSet& operator=(const OwnedPageSet&) = delete;

  bool contains(std::uintptr_t address) const {
    const std::uintptr_t high = address >> 32;
    for (const Chunk& chunk : m_chunks) {
      if (chunk.high != high) continue;
      const std::size_t page = (address & 0xFFFFFFFFu) >> m_shift;
      return ((chunk.bits[page / 64] >> (page % 64)) & 1) != 0;
    }
    return false;
  }
  // Marks, or clears, every system page of [start, start + size). Throws std::bad_alloc when a
  // chunk can't be made, with nothing marked.
  void mark(std::uintptr_t start, std::size_t size, bool on);

 private:
  struct Chunk {
    std::uintptr_t high;
    std::uint64_t* bits;
  };
  std::uint64_t* chunk(std::uintptr_t high);

  std::vector<Chunk> m_chunks;
  unsigned m_shift;
};

}  // namespace internal
}  // namespace zq
