#include <zq/internal/ReentrantSection.h>

#include <zq/platform/Threads.h>

namespace zq {
namespace internal {

void ReentrantSection::enterContended() {
  // Mark the section as having sleepers before sleeping, so that the holder wakes one.
  while (m_state.exchange(2, std::memory_order_acquire) != 0) platform::futexWait(m_state, 2);
}

void ReentrantSection::wakeOne() { platform::futexWake(m_state, 1); }

}  // namespace internal
}  // namespace zq
