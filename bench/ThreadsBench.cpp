// The client lock classes beside the standard library's locks, uncontended.
#include <zq/threads/Mutex.h>
#include <zq/threads/ReadWriteLock.h>

#include <benchmark/benchmark.h>

#include <mutex>
#include <shared_mutex>

namespace {

void BM_Mutex_LockUnlock(benchmark::State& state) {
  zq::Mutex mutex(zq::Mutex::NonRecursive);
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
  }
}
BENCHMARK(BM_Mutex_LockUnlock);

void BM_Mutex_RecursiveLockUnlock(benchmark::State& state) {
  zq::Mutex mutex(zq::Mutex::Recursive);
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
  }
}
BENCHMARK(BM_Mutex_RecursiveLockUnlock);

void BM_StdRecursiveMutex_LockUnlock(benchmark::State& state) {
  std::recursive_mutex mutex;
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
  }
}
BENCHMARK(BM_StdRecursiveMutex_LockUnlock);

void BM_ReadWriteLock_ReadLockUnlock(benchmark::State& state) {
  zq::ReadWriteLock lock;
  for (auto _ : state) {
    lock.lockForRead();
    lock.unlock();
  }
}
BENCHMARK(BM_ReadWriteLock_ReadLockUnlock);

void BM_StdSharedMutex_ReadLockUnlock(benchmark::State& state) {
  std::shared_mutex mutex;
  for (auto _ : state) {
    mutex.lock_shared();
    mutex.unlock_shared();
  }
}
BENCHMARK(BM_StdSharedMutex_ReadLockUnlock);

}  // namespace
