// Guarded pointers: pointers to an object that may die on another thread.
//
// Many pointers share one small record, the SharedCount, which outlives the object and says
// whether the object still exists. To use the object, build a SharedCountPtrGuard on the
// stack and ask isProtected(): while a protected guard lives, the record cannot go away.
//
//   zq::GuardedPtr<Widget> ptr(widget);       // a fresh record for a live object
//   ...                                        // on any thread, from a copy of ptr:
//   zq::SharedCountPtrGuard guard(copy);
//   if (guard.isProtected()) copy->repaint();
//   ...                                        // the owner, before the object comes apart:
//   ptr.markDestroyed();
//
// The object's owner must declare it dead (markDestroyed, or SignalPublisher::resetPtr)
// before destroying it; a record whose owner never does so reports the object alive for
// ever and is never freed.
#pragma once

#include <zq/Export.h>

#include <atomic>
#include <cstdint>
#include <mutex>

namespace zq {

namespace internal {
struct LocalPtr;  // the library's own forms for pointers only the calling thread can reach
class ObjectLock;
}  // namespace internal

// The record behind guarded pointers (internal/SharedCount.h): one owner count standing for
// the object, one count of pointers, whether the object was declared dead, and the lock that
// guards share. Internal to the library.
class SharedCount;

// One reference to a SharedCount, or null. Each pointer has its own mutex, so pointers are
// heavy and belong on the stack or in long-lived records. Thread-safe; assignment locks both
// pointers at once, so two threads may assign two pointers to each other crosswise.
class ZQ_API SharedCountPtr {
 public:
  SharedCountPtr();
  SharedCountPtr(SharedCount* counter);  // takes a reference when `counter` is not null
  SharedCountPtr(const SharedCountPtr& other);
  SharedCountPtr(const SharedCountPtr* other);  // null gives a null pointer
  SharedCountPtr& operator=(const SharedCountPtr& other);
  virtual ~SharedCountPtr();  // NOLINT(bugprone-exception-escape): see the definition

  void reset(SharedCount* counter);
  // Refers to `counter` instead of the current record, taking the new reference before
  // dropping the old; the last reference waits for guards, then deletes the record. The
  // caller holds getMutex().
  virtual void resetNoLock(SharedCount* counter);

  // Declares the object dead, once: later guards are not protected. Waits for nobody.
  void markDestroyed();

  SharedCount* getCounter() const { return m_counter.load(std::memory_order_relaxed); }
  std::mutex& getMutex() const { return m_mutex; }

 protected:
  // A record for a live object, with no pointer yet.
  static SharedCount* newRecord();
  // Refers to `counter` whose count the caller has already changed; the caller holds the mutex.
  void setCounterNoLock(SharedCount* counter) { m_counter.store(counter, std::memory_order_relaxed); }
  // Exchanges the records of two pointers, no count changing; the caller holds both mutexes.
  void swapNoLock(SharedCountPtr& other) {
    other.m_counter.store(m_counter.exchange(other.getCounter(), std::memory_order_relaxed), std::memory_order_relaxed);
  }

 public:
  // Compare the records' addresses, without a lock.
  bool operator==(const SharedCountPtr& other) const { return getCounter() == other.getCounter(); }
  bool operator!=(const SharedCountPtr& other) const { return !(*this == other); }
  bool operator<(const SharedCountPtr& other) const { return getCounter() < other.getCounter(); }

 private:
  mutable std::mutex m_mutex;           // covers m_counter (and m_object in GuardedPtr)
  std::atomic<SharedCount*> m_counter;  // guards read it without m_mutex
};

// A typed guarded pointer. The plain pointer stays set after the object's death: only a
// guard tells whether it may be used. Thread-safe like SharedCountPtr.
template <class T>
class GuardedPtr : public SharedCountPtr {
 public:
  GuardedPtr() : m_object(nullptr) {}
  // A fresh record for a live object; a null object gives a null pointer.
  explicit GuardedPtr(T* object) : m_object(nullptr) {
    if (object == nullptr) return;
    std::lock_guard<std::mutex> lock(getMutex());
    SharedCountPtr::resetNoLock(newRecord());
    m_object.store(object, std::memory_order_relaxed);
  }
  // Like default construction and assignment, without locking a mutex nobody else can see yet.
  GuardedPtr(const GuardedPtr& other) : SharedCountPtr(), m_object(nullptr) {
    std::lock_guard<std::mutex> theirs(other.getMutex());
    SharedCountPtr::resetNoLock(other.getCounter());
    m_object.store(other.m_object.load(std::memory_order_relaxed), std::memory_order_relaxed);
  }
  GuardedPtr& operator=(const GuardedPtr& other) {
    if (&other == this) return *this;
    std::scoped_lock lock(getMutex(), other.getMutex());
    resetNoLock(other.getCounter());
    m_object.store(other.m_object.load(std::memory_order_relaxed), std::memory_order_relaxed);
    return *this;
  }

  void resetNoLock(SharedCount* counter) override {
    SharedCountPtr::resetNoLock(counter);
    m_object.store(nullptr, std::memory_order_relaxed);
  }

  // Exchanges what two pointers refer to, without touching the records' counts.
  void swap(GuardedPtr& other) {
    if (&other == this) return;
    std::scoped_lock lock(getMutex(), other.getMutex());
    swapNoLock(other);
    other.m_object.store(m_object.exchange(other.get(), std::memory_order_relaxed), std::memory_order_relaxed);
  }

  // The plain pointer, whether or not the object lives.
  T* get() const { return m_object.load(std::memory_order_relaxed); }
  T* operator->() const { return get(); }
  T& operator*() const { return *get(); }
  explicit operator bool() const { return get() != nullptr; }

 private:
  friend struct internal::LocalPtr;

  std::atomic<T*> m_object;
};

// Says, once, whether the object of a pointer lived when the guard was built, and keeps the
// record from being deleted while it lives. Build it on the stack; the source pointer must
// outlive it (a guard that dropped the last reference would wait for itself).
class ZQ_API SharedCountPtrGuard {
 public:
  explicit SharedCountPtrGuard(const SharedCountPtr& ptr);
  virtual ~SharedCountPtrGuard();

  bool isProtected() const { return m_ptr.getCounter() != nullptr; }

 protected:
  SharedCountPtrGuard(const SharedCountPtrGuard&);  // an unbound, unprotected guard
  SharedCountPtrGuard& operator=(const SharedCountPtrGuard&) { return *this; }

 private:
  // The shared side of a record's lock, or of the one lock guards of a null pointer take.
  class ZQ_API SharedHold {
   public:
    SharedHold() : m_lock(nullptr) {}
    explicit SharedHold(const SharedCountPtr& ptr);
    ~SharedHold();  // NOLINT(bugprone-exception-escape): see the definition
    SharedHold(const SharedHold&) = delete;
    SharedHold& operator=(const SharedHold&) = delete;

   private:
    internal::ObjectLock* m_lock;
  };

  SharedHold m_lock;  // let go of after m_ptr
  SharedCountPtr m_ptr;
};

}  // namespace zq
