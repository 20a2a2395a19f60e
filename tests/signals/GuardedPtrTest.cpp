#include <zq/signals/GuardedPtr.h>
#include <zq/signals/internal/LocalPtr.h>
#include <zq/signals/internal/SharedCount.h>

#include "tests/support/Wait.h"

#include <gtest/gtest.h>
#include <boost/thread/lock_types.hpp>

#include <atomic>
#include <thread>

namespace {

using zq::GuardedPtr;
using zq::SharedCount;
using zq::SharedCountPtr;
using zq::SharedCountPtrGuard;
using zq::internal::LocalPtr;

TEST(GuardedPtrTest, CountsSaturateAndMarkDeathOnce) {
  SharedCount* record = new SharedCount();
  SharedCountPtr keep(record);  // frees the record at the end of the test
  EXPECT_EQ(1u, record->ownerCount());
  EXPECT_EQ(1u, record->pointerCount());
  EXPECT_FALSE(record->changeCount(-1, true));
  EXPECT_FALSE(record->changeCount(-5, true)) << "one pointer is left";
  EXPECT_EQ(0u, record->ownerCount()) << "saturates at zero";
  EXPECT_FALSE(record->changeCount(3, true));
  EXPECT_TRUE(record->isDestroyed()) << "never cleared";
  EXPECT_FALSE(record->changeCount(-3, true));
}

TEST(GuardedPtrTest, CopiesAssignmentsResetsAndLocalFormsCountTheRecord) {
  int object = 0, second = 0;
  GuardedPtr<int> a(&object), b(&second);
  SharedCount* record = a.getCounter();
  SharedCount* recordB = b.getCounter();
  GuardedPtr<int> c;
  c = a;
  const GuardedPtr<int>& itself = c;
  c = itself;
  EXPECT_EQ(2u, record->pointerCount());
  EXPECT_TRUE(a == c);
  c.reset(record);
  EXPECT_EQ(2u, record->pointerCount()) << "resetting to the record held changes no count";
  EXPECT_EQ(nullptr, c.get()) << "a reset clears the plain pointer, whatever the record";
  c.reset(nullptr);
  EXPECT_EQ(1u, record->pointerCount());
  SharedCountPtr fromNull(static_cast<const SharedCountPtr*>(nullptr)), fromPointer(&a);
  EXPECT_EQ(record, fromPointer.getCounter());
  EXPECT_TRUE(fromNull < fromPointer);

  GuardedPtr<int> local;
  LocalPtr::assign(local, a);
  LocalPtr::assign(local, b);  // holding a record already: the old one is let go
  EXPECT_EQ(2u, record->pointerCount());
  EXPECT_EQ(2u, recordB->pointerCount());
  EXPECT_EQ(&second, local.get());
  LocalPtr::swap(local, a);
  EXPECT_EQ(&object, local.get());
  EXPECT_EQ(&second, a.get());
  EXPECT_EQ(2u, record->pointerCount()) << "a swap moves references without counting";
  LocalPtr::reset(a);
  EXPECT_EQ(nullptr, a.get());
  EXPECT_EQ(1u, recordB->pointerCount());
  // The last pointer of a dead object frees the record (the sanitizer sees a leak otherwise).
  b.markDestroyed();
  LocalPtr::reset(b);
  local.markDestroyed();
}

TEST(GuardedPtrTest, PointersAssignedToEachOtherCrosswiseDoNotDeadlock) {
  static int first = 1, second = 2;
  // Left to leak if the threads lock up, as they then keep using them.
  auto* a = new GuardedPtr<int>(&first);
  auto* b = new GuardedPtr<int>(&second);
  auto* c = new SharedCountPtr(*a);
  auto* d = new SharedCountPtr(*b);
  a->markDestroyed(), b->markDestroyed();  // so that the last pointer of each frees it
  ASSERT_TRUE(zq::test::bothReturn(
      [=] {
        for (int i = 0; i < 20000; ++i) *a = *b, *c = *d;
      },
      [=] {
        for (int i = 0; i < 20000; ++i) *b = *a, *d = *c;
      }))
      << "two threads assigning crosswise locked each other up";
  EXPECT_TRUE(*a == *b && *c == *d);
  delete a, delete b, delete c, delete d;
}

TEST(GuardedPtrTest, GuardsAnswerOnceWhetherTheObjectLived) {
  SharedCountPtr null;
  {
    SharedCountPtrGuard guard(null);
    EXPECT_FALSE(guard.isProtected());
    EXPECT_FALSE(zq::internal::emptyObjectLock().try_lock()) << "a null guard holds the empty lock";
  }
  ASSERT_TRUE(zq::internal::emptyObjectLock().try_lock());
  zq::internal::emptyObjectLock().unlock();

  int object = 0;
  GuardedPtr<int> ptr(&object);
  SharedCount* record = ptr.getCounter();
  GuardedPtr<int> copy(ptr);
  {
    SharedCountPtrGuard before(copy);
    EXPECT_EQ(3u, record->pointerCount());
    ptr.markDestroyed();
    ptr.markDestroyed();
    EXPECT_EQ(0u, record->ownerCount()) << "marking twice counts once";
    EXPECT_TRUE(before.isProtected()) << "the answer stands for the guard's life";
    SharedCountPtrGuard after(copy);
    EXPECT_FALSE(after.isProtected());
    EXPECT_EQ(3u, record->pointerCount()) << "an unprotected guard holds no reference";
  }
  EXPECT_EQ(&object, copy.get()) << "the plain pointer outlives the object";
}

TEST(GuardedPtrTest, TheLastPointerWaitsForGuardsBeforeFreeingTheRecord) {
  int object = 0;
  auto ptr = std::make_unique<GuardedPtr<int>>(&object);
  ptr->markDestroyed();
  GuardedPtr<int> source(*ptr);
  std::atomic<bool> released(false);
  std::thread releaser;
  {
    // The guard's shared lock, not its reference, is what makes the last pointer wait.
    SharedCountPtrGuard guard(source);
    ASSERT_FALSE(guard.isProtected());
    boost::shared_lock<boost::shared_mutex> held(ptr->getCounter()->objectLock());
    source.reset(nullptr);
    releaser = std::thread([&] {
      ptr.reset();  // the last reference
      released = true;
    });
    EXPECT_FALSE(zq::test::waitFor([&] { return released.load(); }, std::chrono::milliseconds(200)));
  }
  EXPECT_TRUE(zq::test::waitFor([&] { return released.load(); }));
  releaser.join();
}

}  // namespace
