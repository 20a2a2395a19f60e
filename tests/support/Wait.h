// Waiting for a condition with a generous deadline instead of sleeping a fixed time.
#pragma once

#include <chrono>
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

}  // namespace test
}  // namespace zq
