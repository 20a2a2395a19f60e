// What a thread last read of a few publishers' connection tables: for each (publisher, signal),
// the table's count when it was read and weak pointers to the connections it listed. While the
// count stands, an emission takes its connections from here with no lock: weak pointers keep
// no connection alive, so a connection still ends when its last owner lets go, and one that
// ended is skipped as a disconnected one would be. Part of the thread's record; library-private.
#pragma once

#include <zq/signals/Connection.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace zq {

class SignalPublisher;

namespace internal {

// Whether a signal's name is `b`. Names are short: a plain loop beats a call to memcmp.
inline bool sameName(const std::string& a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < b.size(); ++i)
    if (a[i] != b[i]) return false;
  return true;
}

struct EmissionCache {
  static constexpr std::size_t kEntries = 8;

  struct Entry {
    const SignalPublisher* publisher = nullptr;  // an identity, never followed
    std::uint64_t identity = 0;                  // tells publishers at one address apart
    std::uint64_t version = 0;
    std::string signal;
    std::vector<std::weak_ptr<ConnectionImpl>> connections;  // empty: nothing connected
  };

  // The entry for (publisher, signal), or null. The one found last is looked at first: a
  // thread tends to emit one signal many times in a row.
  Entry* find(const SignalPublisher* publisher, std::uint64_t identity, std::string_view signal) {
    if (matches(entries[last], publisher, identity, signal)) return &entries[last];
    for (std::size_t i = 0; i < kEntries; ++i)
      if (matches(entries[i], publisher, identity, signal)) {
        last = i;
        return &entries[i];
      }
    return nullptr;
  }
  // The entry to fill for (publisher, signal), emptied: its own, or the oldest filled. It
  // matches nothing until the caller, once it is whole, sets `publisher`.
  Entry& slotFor(const SignalPublisher* publisher, std::uint64_t identity, std::string_view signal) {
    Entry* entry = find(publisher, identity, signal);
    if (entry == nullptr) {
      entry = &entries[next];
      next = (next + 1) % kEntries;
      entry->identity = identity;
      entry->signal.assign(signal.data(), signal.size());
    }
    entry->publisher = nullptr;
    entry->connections.clear();
    return *entry;
  }

  static bool matches(const Entry& entry, const SignalPublisher* publisher, std::uint64_t identity,
                      std::string_view signal) {
    return entry.publisher == publisher && entry.identity == identity && sameName(entry.signal, signal);
  }

  Entry entries[kEntries];
  std::size_t next = 0;  // the entry to fill next
  std::size_t last = 0;  // the entry found last
};

}  // namespace internal
}  // namespace zq
