#include <zq/crypto/internal/SecureHeapSets.h>

#include <cstdlib>
#include <new>

namespace zq {
namespace internal {

OwnedPageSet::OwnedPageSet(std::size_t pageSize) : m_shift(0) {
  while ((std::size_t(1) << m_shift) < pageSize) ++m_shift;
}

OwnedPageSet::~OwnedPageSet() {
  for (const Chunk& c : m_chunks) std::free(c.bits);
}

std::uint64_t* OwnedPageSet::chunk(std::uintptr_t high) {
  for (const Chunk& c : m_chunks)
    if (c.high == high) return c.bits;
  const std::size_t words = (std::uint64_t(1) << (32 - m_shift)) / 64;
  auto* bits = static_cast<std::uint64_t*>(std::calloc(words, sizeof(std::uint64_t)));
  if (bits == nullptr) throw std::bad_alloc();
  try {
    m_chunks.push_back(Chunk{high, bits});
  } catch (...) {
    std::free(bits);
    throw;
  }
  return bits;
}

void OwnedPageSet::mark(std::uintptr_t start, std::size_t size, bool on) {
  if (size == 0) return;
  const std::uintptr_t first = start >> m_shift;
  const std::uintptr_t last = (start + size - 1) >> m_shift;
  // Every chunk first, so that a failure leaves nothing half marked.
  for (std::uintptr_t page = first; page <= last; page += (std::uintptr_t(1) << (32 - m_shift)))
    chunk((page << m_shift) >> 32);
  chunk((last << m_shift) >> 32);
  for (std::uintptr_t page = first; page <= last; ++page) {
    std::uint64_t* bits = chunk((page << m_shift) >> 32);
    const std::size_t index = page & ((std::uintptr_t(1) << (32 - m_shift)) - 1);
    if (on)
      bits[index / 64] |= std::uint64_t(1) << (index % 64);
    else
      bits[index / 64] &= ~(std::uint64_t(1) << (index % 64));
  }
}

}  // namespace internal
}  // namespace zq
