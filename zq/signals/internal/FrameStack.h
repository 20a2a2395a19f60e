// The calling thread's call stack, and frames pushed and popped without an allocation each
// time: a popped frame's list node, emptied, waits for the next push on the same thread.
#pragma once

#include <zq/signals/Connection.h>
#include <zq/signals/internal/LocalPtr.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <list>
#include <memory>

namespace zq {
namespace internal {

// Pointer counts on the records of the few publishers a thread emitted for last, taken in
// batches: a frame takes one for its publisher and gives it back when popped, with no locked
// instruction while the thread keeps to those publishers. A record so lives on after its
// publisher until the thread turns to others or ends; its counts are the library's own.
class PublisherCounts {
 public:
  PublisherCounts() = default;
  PublisherCounts(const PublisherCounts&) = delete;
  PublisherCounts& operator=(const PublisherCounts&) = delete;
  ~PublisherCounts() {
    for (Kept& kept : m_kept) release(kept);
  }

  // `to` (null) = `from`, whose record stays alive meanwhile.
  void lend(GuardedPtr<SignalPublisher>& to, const GuardedPtr<SignalPublisher>& from) {
    SharedCount* record = from.getCounter();
    Kept* kept = find(record);
    if (kept == nullptr || kept->units == 0) return lendSlow(to, from);
    --kept->units;
    LocalPtr::adopt(to, from);
  }

  // Lets go of `ptr`'s count, into the thread's hold if it keeps that record.
  void giveBack(GuardedPtr<SignalPublisher>& ptr) {
    Kept* kept = find(ptr.getCounter());
    if (kept == nullptr || kept->units >= kMostKept) return LocalPtr::reset(ptr);
    ++kept->units;
    LocalPtr::forget(ptr);
  }

 private:
  static constexpr std::size_t kRecords = 4;
  static constexpr std::uint64_t kBatch = 16, kMostKept = 64;

  struct Kept {
    SharedCount* record = nullptr;  // alive while units > 0
    std::uint64_t units = 0;
  };

  Kept* find(SharedCount* record) {
    if (record == nullptr) return nullptr;
    for (Kept& kept : m_kept)
      if (kept.record == record) return &kept;
    return nullptr;
  }
  void lendSlow(GuardedPtr<SignalPublisher>& to, const GuardedPtr<SignalPublisher>& from);
  static void release(Kept& kept);

  Kept m_kept[kRecords];
  std::size_t m_next = 0;  // the entry to replace next
};

// Part of the thread's record (SignalThread.h).
struct ThreadFrames {
  // The thread's stack, made on first use (SignalPublisher::callStack).
  std::list<CallStackFrame>& stack() {
    if (current == nullptr) {
      current = new std::list<CallStackFrame>();
      if (current != owned.get()) owned.reset(current);
    }
    return *current;
  }

  // Puts a frame without publisher, arguments or connection at the back of `stack`; its name
  // and delay are stale, for the caller to set.
  CallStackFrame& push(std::list<CallStackFrame>& stack) {
    if (spare.empty()) spare.emplace_back();
    stack.splice(stack.end(), spare, spare.begin());
    return stack.back();
  }

  // Takes the newest frame off `stack` and lets go of what it refers to; the name keeps its
  // storage for the next frame.
  void pop(std::list<CallStackFrame>& stack) {
    CallStackFrame& frame = stack.back();
    counts.giveBack(frame.publisher);
    frame.args.reset();
    frame.connection.reset();
    spare.splice(spare.begin(), stack, std::prev(stack.end()));
  }

  // Ends after the frames below, which may still give counts back.
  PublisherCounts counts;
  std::list<CallStackFrame>* current = nullptr;  // what swapStack exchanges
  // The list the thread made itself, deleted with the thread or when a fresh one replaces it.
  std::unique_ptr<std::list<CallStackFrame>> owned;
  std::list<CallStackFrame> spare;
};

}  // namespace internal
}  // namespace zq
