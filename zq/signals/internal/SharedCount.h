// The record behind guarded pointers, which the public header only names: how it counts, and
// the Boost shared_mutex that guards share and the record's end takes alone.
#pragma once

#include <zq/Export.h>
#include <zq/signals/GuardedPtr.h>

#include <boost/thread/shared_mutex.hpp>

#include <atomic>
#include <cstdint>
#include <mutex>

namespace zq {

namespace internal {

class ObjectLock : public boost::shared_mutex {};

// What guards of a null pointer lock, made among the library's static objects.
ZQ_API ObjectLock& emptyObjectLock();

}  // namespace internal

// One owner count standing for the object, one count of pointers, and whether the object was
// declared dead. Always on the heap; the pointer that drops the last count deletes it.
// Thread-safe.
class ZQ_API SharedCount {
 public:
  SharedCount();
  virtual ~SharedCount();

  // Adds `delta` to the owner count (`owner`) or the pointer count, saturating at zero; a
  // negative owner delta marks the object dead. True when both counts are now zero.
  bool changeCount(int delta, bool owner);

  bool isDestroyed() const { return m_destroyed.load(std::memory_order_relaxed); }
  std::uint64_t ownerCount() const;
  std::uint64_t pointerCount() const;
  internal::ObjectLock& objectLock() { return m_objectLock; }

 private:
  friend struct internal::LocalPtr;

  SharedCount(const SharedCount&);
  SharedCount& operator=(const SharedCount&);

  mutable std::mutex m_mutex;  // covers the counts and the writing of m_destroyed
  internal::ObjectLock m_objectLock;
  std::uint64_t m_ownerCount;
  // Changes that keep it above zero decide nothing and skip m_mutex; see changeCount.
  std::atomic<std::uint64_t> m_pointerCount;
  std::atomic<bool> m_destroyed;  // read without m_mutex by guards
};

}  // namespace zq
