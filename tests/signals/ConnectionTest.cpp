#include <zq/signals/Connection.h>
#include <zq/signals/SignalPublisher.h>

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

namespace {

// Opens the protected parts of a connection to the test.
struct Open : zq::ConnectionImplCpp {
  Open(const void* receiver, const char* slot, zq::ConnectionType type = zq::Direct)
      : ConnectionImplCpp(receiver, slot, type, nullptr) {}
  void call_slot(std::shared_ptr<zq::ArgumentVector>) override { ++calls; }
  using ConnectionImplCpp::is_call_compatible;
  using ConnectionImplCpp::isConnected;
  int calls = 0;
};

TEST(ConnectionTest, ReceiverAndSlotIdentifyAConnection) {
  int receiver = 0, other = 0;
  const Open c(&receiver, "slot");
  EXPECT_TRUE(c.isConnected(nullptr, ""));
  EXPECT_TRUE(c.isConnected(&receiver, "slot"));
  EXPECT_TRUE(c.isConnected(nullptr, "slot"));
  EXPECT_FALSE(c.isConnected(&other, ""));
  EXPECT_FALSE(c.isConnected(&receiver, "other"));

  Open copy(nullptr, "x", zq::Queued);
  copy = c;
  EXPECT_EQ(zq::Direct, copy.type());
  EXPECT_EQ("slot", copy.slot());
}

TEST(ConnectionTest, ASlotMayTakeFewerArgumentsButNotMore) {
  const Open c(nullptr, "s");
  const zq::SignalDeclaration two = zq::makeDeclaration<int, std::string>("two");
  const zq::TypePair slotTypes[] = {zq::ArgumentTraits<int>::type(), zq::ArgumentTraits<std::string>::type(),
                                    zq::ArgumentTraits<int>::type()};
  EXPECT_TRUE(c.is_call_compatible(two, slotTypes, 0));
  EXPECT_TRUE(c.is_call_compatible(zq::SignalDeclaration(), slotTypes, 0));
  EXPECT_TRUE(c.is_call_compatible(two, slotTypes, 1));
  EXPECT_TRUE(c.is_call_compatible(two, slotTypes, 2));
  EXPECT_FALSE(c.is_call_compatible(two, slotTypes, 3));
  EXPECT_FALSE(c.is_call_compatible(two, slotTypes + 1, 1)) << "compared from the first argument";
  EXPECT_TRUE(c.is_call_compatible(two)) << "the untyped form accepts anything";
}

TEST(ConnectionTest, OnlyADirectConnectionWithoutDelayCallsOnTheEmittingThread) {
  std::list<zq::CallStackFrame> stack(1);
  Open direct(nullptr, "d");
  stack.back().delay = 0.0f;
  EXPECT_TRUE(direct.emit_signal(stack));
  EXPECT_EQ(1, direct.calls);
  stack.back().delay = -1.0f;
  EXPECT_TRUE(direct.emit_signal(stack)) << "a negative delay is no delay";
  EXPECT_EQ(2, direct.calls);
  for (float delay : {0.5f, std::nanf("")}) {
    stack.back().delay = delay;
    direct.emit_signal(stack);
    EXPECT_EQ(2, direct.calls) << "a delay (" << delay << ") is never served on the emitting thread";
  }
  stack.back().delay = 0.0f;
  Open blocking(nullptr, "b", zq::Blocking);
  EXPECT_FALSE(blocking.emit_signal(stack));
  EXPECT_EQ(0, blocking.calls);
}

TEST(ConnectionTest, DebugInfoNamesReceiverAndSlot) {
  std::ostringstream os;
  Open(reinterpret_cast<const void*>(0x10), "onValue").print_debug_info(os);
  EXPECT_EQ("void*@0x10::onValue(...)", os.str());
  std::ostringstream none;
  Open(nullptr, "f").print_debug_info(none);
  EXPECT_EQ("void*@null::f(...)", none.str());
}

}  // namespace
