// A publisher and a hand-made connection shared by the signal tests.
#pragma once

#include <zq/signals/SignalPublisher.h>

#include <functional>
#include <memory>
#include <sstream>
#include <string>

namespace zq {
namespace test {

class Station : public SignalPublisher {
 public:
  static constexpr Signal<std::string, int> reading{"reading"};
  static constexpr Signal<> tick{"tick"};
  Station() {
    declareSignal(reading);
    declareSignal(tick);
  }
  ~Station() override { resetPtr(); }
};

// Counts its calls, runs `body` on each, and answers the type check as `compatible` says.
struct Probe : ConnectionImplCpp {
  Probe(const void* receiver, const char* slot, ConnectionType type = Direct, std::function<void()> body = {})
      : ConnectionImplCpp(receiver, slot, type, nullptr), body(std::move(body)) {}
  void call_slot(std::shared_ptr<ArgumentVector>) override {
    ++calls;
    if (body) body();
  }
  bool is_call_compatible(const SignalDeclaration&) const override { return compatible; }
  std::function<void()> body;
  int calls = 0;
  bool compatible = true;
};

inline std::string address(const void* p) {
  std::ostringstream os;
  print_address(os, p);
  return os.str();
}

}  // namespace test
}  // namespace zq
