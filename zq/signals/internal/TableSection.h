// A publisher's lock, which counts the times it was left: the connection table it guards may
// have changed each time, and an emitting thread keeps what it read of the table while the
// count stands (EmissionCache.h). Library-private.
#pragma once

#include <zq/internal/ReentrantSection.h>

#include <atomic>
#include <cstdint>

namespace zq {
namespace internal {

class TableSection : public ReentrantSection {
 public:
  // Leaves once, counting: whoever held the lock may have changed the table.
  void unlock() {
    m_version.store(m_version.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    ReentrantSection::unlock();
  }
  // Leaves once without counting, for a reader that changed nothing.
  void unlockUnchanged() { ReentrantSection::unlock(); }

  // The count, read without the lock.
  std::uint64_t version() const { return m_version.load(std::memory_order_acquire); }

 private:
  std::atomic<std::uint64_t> m_version{0};  // written by the holder only
};

// Holds a publisher's lock to read the table: leaving it does not count.
class TableReading {
 public:
  explicit TableReading(TableSection& section) : m_section(section) { m_section.lock(); }
  ~TableReading() { m_section.unlockUnchanged(); }
  TableReading(const TableReading&) = delete;
  TableReading& operator=(const TableReading&) = delete;

 private:
  TableSection& m_section;
};

}  // namespace internal
}  // namespace zq
