// Waiting for a condition with a generous deadline instead of sleeping a fixed time.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

namespace zq {
namespace test {

// Polls `condition` until it holds or `deadline` passes; returns its last value.
template <class Condition>
bool waitFor(Condition condition, std::chrono::milliseconds deadline = std::chrono::seconds(10)) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return condition();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

// Runs `a` and `b` on two threads at once and waits up to `deadline` for both to return; false
// means they locked each other up. The threads are then left behind: what they use must never
// be freed.
template <class A, class B>
bool bothReturn(A a, B b, std::chrono::milliseconds deadline = std::chrono::seconds(30)) {
  auto returned = std::make_shared<std::atomic<int>>(0);
  std::thread first([a, returned]() mutable { a(), ++*returned; });
  std::thread second([b, returned]() mutable { b(), ++*returned; });
  const bool both = waitFor([&] { return *returned == 2; }, deadline);
  for (std::thread* t : {&first, &second}) both ? t->join() : t->detach();
  return both;
}

}  // namespace test
}  // namespace zq
