// The calling thread's call stack, and frames pushed and popped without an allocation each
// time: a popped frame's list node, emptied, waits for the next push on the same thread.
#pragma once

#include <zq/signals/Connection.h>
#include <zq/signals/internal/LocalPtr.h>

#include <iterator>
#include <list>
#include <memory>

namespace zq {
namespace internal {

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
    LocalPtr::reset(frame.publisher);
    frame.args.reset();
    frame.connection.reset();
    spare.splice(spare.begin(), stack, std::prev(stack.end()));
  }

  std::list<CallStackFrame>* current = nullptr;  // what swapStack exchanges
  // The list the thread made itself, deleted with the thread or when a fresh one replaces it.
  std::unique_ptr<std::list<CallStackFrame>> owned;
  std::list<CallStackFrame> spare;
};

}  // namespace internal
}  // namespace zq
