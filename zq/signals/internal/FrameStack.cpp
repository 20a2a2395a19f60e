#include <zq/signals/internal/FrameStack.h>

namespace zq {
namespace internal {

void PublisherCounts::lendSlow(GuardedPtr<SignalPublisher>& to, const GuardedPtr<SignalPublisher>& from) {
  SharedCount* record = from.getCounter();
  if (record == nullptr) return LocalPtr::assign(to, from);
  Kept* kept = find(record);
  if (kept == nullptr) {
    kept = &m_kept[m_next];
    m_next = (m_next + 1) % kRecords;
    release(*kept);
    kept->record = record;
  }
  // `from` holds a count, so these are never the record's first.
  LocalPtr::addPointers(*record, kBatch);
  kept->units += kBatch - 1;
  LocalPtr::adopt(to, from);
}

void PublisherCounts::release(Kept& kept) {
  if (kept.units != 0) {
    // All but the last without a lock: that one keeps the count above zero meanwhile.
    if (kept.units > 1) LocalPtr::dropPointers(*kept.record, kept.units - 1);
    LocalPtr::dropPointer(kept.record);
  }
  kept = Kept();
}

}  // namespace internal
}  // namespace zq
