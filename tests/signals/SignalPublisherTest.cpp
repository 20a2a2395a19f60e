#include <zq/signals/SignalPublisher.h>

#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using zq::SignalPublisher;

class Thermometer : public zq::SignalPublisher {
 public:
  static constexpr zq::Signal<double, std::string> changed{"changed"};
  static constexpr zq::Signal<> reset{"reset"};

  Thermometer() {
    declareSignal(changed);
    declareSignal(reset);
  }
  ~Thermometer() override { resetPtr(); }

  void measure(double celsius) { emit(changed, celsius, "kitchen"); }
};

struct Display {
  void show(double celsius) { shown.push_back(celsius); }
  void showRoom(double celsius, const std::string& room) { rooms.push_back(room + "=" + std::to_string(int(celsius))); }
  void clear() const { ++clears; }
  std::vector<double> shown;
  std::vector<std::string> rooms;
  mutable int clears = 0;
};

std::vector<double> g_freeCalls;
void onTemperature(double celsius) { g_freeCalls.push_back(celsius); }
void onLong(long) {}

TEST(SignalPublisherTest, ClientConnectsMembersFunctionsAndLambdasAndEmitsTypedValues) {
  zq::test::LogCapture log;
  g_freeCalls.clear();
  Thermometer thermometer;
  Display display;
  std::vector<std::string> order;

  EXPECT_TRUE(thermometer.connect(Thermometer::changed, &display, &Display::show));  // takes fewer arguments
  EXPECT_TRUE(thermometer.connect("changed", &display, &Display::showRoom));
  EXPECT_TRUE(thermometer.connect(Thermometer::reset, &display, &Display::clear));  // const member
  EXPECT_TRUE(thermometer.connect("changed", &onTemperature, zq::Direct | zq::UniqueConnection));
  EXPECT_FALSE(thermometer.connect("changed", &onTemperature, zq::Direct | zq::UniqueConnection));
  EXPECT_TRUE(thermometer.connect(
      "changed", [&](double, const std::string&) { order.push_back("first"); }, zq::Direct | zq::PrependConnection));
  EXPECT_TRUE(thermometer.connect("changed", &display, [&](double) { order.push_back("owned"); }));

  thermometer.measure(21.5);
  EXPECT_EQ(std::vector<double>{21.5}, display.shown);
  EXPECT_EQ(std::vector<std::string>{"kitchen=21"}, display.rooms);
  EXPECT_EQ(std::vector<double>{21.5}, g_freeCalls);
  EXPECT_EQ((std::vector<std::string>{"first", "owned"}), order);
  EXPECT_EQ(5, thermometer.emit("changed", 3.0, std::wstring(L"hall"))) << "wide text travels as std::string";
  EXPECT_EQ(1, thermometer.emit(Thermometer::reset));
  EXPECT_EQ(1, display.clears);

  log.clear();
  EXPECT_EQ(5, thermometer.emit("changed", 7, "x"));
  EXPECT_EQ(2u, display.shown.size());
  EXPECT_EQ(5u, log.linesWith("argument mismatch on signal delivery").size());

  // Disconnecting by receiver and slot takes out exactly that slot.
  thermometer.disconnect("changed", &display, &Display::show);
  EXPECT_FALSE(thermometer.isConnected("changed", &display, zq::internal::memberSlotName(&Display::show)));
  thermometer.disconnectFrom(&display, "");
  thermometer.disconnect("changed", &onTemperature);
  EXPECT_EQ(1u, thermometer.countConnected("", nullptr, ""));

  log.clear();
  EXPECT_FALSE(thermometer.connect("changed", &onLong));
  EXPECT_FALSE(thermometer.connect("changed", [](double, const std::string&, int) {}));
  EXPECT_EQ(2u, log.linesWith("type-mismatch on signal connection (changed->").size());
  EXPECT_EQ(1u, thermometer.countConnected("changed", nullptr, ""));
}

TEST(SignalPublisherTest, DeclarationsAndTheirChecks) {
  const zq::TypePair a("A", "a"), b("B", "b");
  Thermometer t;
  EXPECT_TRUE(t.isDeclared("destroyed")) << "every publisher declares it";
  t.declareSignal(SignalPublisher::createDeclaration("changed", a));
  EXPECT_EQ(2u, t.signalDeclaration("changed").size()) << "a second declaration replaces the first";

  EXPECT_TRUE(t.isCallCompatible("changed", SignalPublisher::createDeclaration("other", zq::TypePair("x", "a"))));
  EXPECT_FALSE(t.isCallCompatible("changed", SignalPublisher::createDeclaration("changed", b)));
  EXPECT_FALSE(t.isCallCompatible("changed", SignalPublisher::createDeclaration("changed")));
  EXPECT_FALSE(t.isCallCompatible("undeclared", SignalPublisher::createDeclaration("undeclared")));

  const zq::SignalDeclaration ints = zq::makeDeclaration<int, std::string>("n");
  EXPECT_TRUE(SignalPublisher::isCallCompatible(ints, zq::makeArguments(1, "one", 2.0)));
  EXPECT_FALSE(SignalPublisher::isCallCompatible(ints, zq::makeArguments(1)));
  EXPECT_FALSE(SignalPublisher::isCallCompatible(ints, zq::makeArguments(1L, "one")));
  EXPECT_TRUE(SignalPublisher::isCallCompatible(zq::makeDeclaration<>("n"), nullptr));
}

// A hand-built connection, to see the table as the library sees it.
struct Probe : zq::ConnectionImplCpp {
  Probe(const void* receiver, const char* slot, zq::ConnectionType type = zq::Direct, std::function<void()> body = {})
      : ConnectionImplCpp(receiver, slot, type, nullptr), m_body(std::move(body)) {}
  void call_slot(std::shared_ptr<zq::ArgumentVector>) override {
    ++calls;
    if (m_body) m_body();
  }
  std::function<void()> m_body;
  int calls = 0;
};

class PublisherTest : public ::testing::Test {
 protected:
  std::shared_ptr<Probe> add(const char* signal, const void* receiver, const char* slot,
                             zq::ConnectionType type = zq::Direct, std::function<void()> body = {}) {
    const int position = pub.validateType(type, signal, receiver, slot);
    auto probe = std::make_shared<Probe>(receiver, slot, type, std::move(body));
    if (position != 0) pub.connect(signal, probe, position);
    return probe;
  }
  Thermometer pub;
  int r1 = 0, r2 = 0;
};

TEST_F(PublisherTest, ValidateTypeStripsFlagsAndDecidesThePlaceAndUndeclaredSignalsAreRefused) {
  add("changed", &r1, "a");
  zq::ConnectionType type = zq::Queued | zq::UniqueConnection;
  EXPECT_EQ(0, pub.validateType(type, "changed", &r1, "a"));
  EXPECT_EQ(zq::Queued, type) << "flags are stripped even when nothing is connected";
  type = zq::Direct | zq::UniqueConnection | zq::PrependConnection;
  EXPECT_EQ(-1, pub.validateType(type, "changed", &r1, "b"));
  type = static_cast<zq::ConnectionType>(zq::Disconnected | 0x10000);
  EXPECT_EQ(1, pub.validateType(type, "changed", &r1, "a"));
  EXPECT_EQ(zq::Disconnected, type);

  zq::test::LogCapture log;
  add("nope", &r1, "a");
  EXPECT_FALSE(pub.isConnected("nope", nullptr, ""));
  ASSERT_EQ(1u, log.bodies().size()) << "an undeclared signal is refused with one line";
  EXPECT_EQ("[zq::SignalPublisher::connect] connecting an undeclared signal (nope).", log.bodies()[0]);
  EXPECT_EQ(1u, log.linesWith("WARNING").size());
}

TEST_F(PublisherTest, QueriesAndTheirAsymmetryForThePublisherItself) {
  add("changed", &r1, "a");
  add("changed", &r1, "b");
  add("reset", &r2, "a");
  add("reset", &pub, "self");
  EXPECT_TRUE(pub.isConnected("", nullptr, ""));
  EXPECT_TRUE(pub.isConnected("", &r2, "a")) << "an empty signal searches every entry";
  EXPECT_FALSE(pub.isConnected("changed", &r2, ""));
  EXPECT_EQ(2u, pub.countConnected("", nullptr, "a"));
  EXPECT_EQ(4u, pub.countConnected("", nullptr, ""));
  EXPECT_FALSE(pub.isConnected("reset", &pub, "")) << "a query about the publisher itself finds nothing";
  EXPECT_EQ(1u, pub.countConnected("reset", &pub, "")) << "but it is counted";
}

TEST_F(PublisherTest, DisconnectFamilyMarksAndRemoves) {
  auto a = add("changed", &r1, "a");
  auto b = add("changed", &r1, "b");
  auto c = add("reset", &r1, "a");
  auto d = add("reset", &r2, "a");
  pub.disconnect("changed", &r1, "");
  EXPECT_EQ(zq::Disconnected, a->type());
  EXPECT_EQ(zq::Disconnected, b->type());
  EXPECT_FALSE(pub.isConnected("changed", nullptr, "")) << "the emptied entry is gone";
  pub.disconnect("unknown", &r1, "a");  // no entry: no failure
  pub.disconnectFrom(nullptr, "a");
  EXPECT_EQ(zq::Disconnected, c->type());
  EXPECT_EQ(zq::Disconnected, d->type());
  EXPECT_EQ(0u, pub.countConnected("", nullptr, ""));
}

TEST_F(PublisherTest, MoveConnectionsKeepsTheTargetsEntries) {
  Thermometer target;
  auto mine = add("changed", &r1, "mine");
  auto moved = add("reset", &r1, "moved");
  auto theirs = std::make_shared<Probe>(&r2, "theirs");
  target.connect("changed", theirs, 1);

  pub.moveConnectionsTo(target);
  EXPECT_EQ(0u, pub.countConnected("", nullptr, ""));
  EXPECT_TRUE(target.isConnected("changed", &r2, "theirs"));
  EXPECT_FALSE(target.isConnected("changed", &r1, "mine")) << "the target's entry stays, the moved one is dropped";
  EXPECT_TRUE(target.isConnected("reset", &r1, "moved"));
  EXPECT_EQ(zq::Direct, mine->type()) << "moving does not disconnect";

  target.moveConnectionsTo(target);
  EXPECT_EQ(0u, target.countConnected("", nullptr, "")) << "moving onto itself clears the table";
}

TEST_F(PublisherTest, EmissionSeesDisconnectsAtOnceAndNewConnectionsNextTime) {
  add("reset", &r1, "first", zq::Direct, [&] { pub.disconnect("reset", &r2, "second"); });
  auto second = add("reset", &r2, "second");
  std::shared_ptr<Probe> late;
  add("reset", &r2, "third", zq::Direct, [&] {
    if (!late) late = add("reset", &r2, "late");
  });
  EXPECT_EQ(2, pub.emitSignal("reset", nullptr)) << "the stopped connection is not counted";
  EXPECT_EQ(0, second->calls);
  EXPECT_EQ(0, late->calls) << "a connection made during an emission waits for the next";
  EXPECT_EQ(3, pub.emitSignal("reset", nullptr));
}

TEST_F(PublisherTest, OnlyDirectConnectionsCallHereAndOthersAreNotCounted) {
  auto direct = add("reset", &r1, "direct");
  auto blocking = add("reset", &r1, "blocking", zq::Blocking);
  auto flagged = std::make_shared<Probe>(&r1, "flagged", zq::Direct | zq::UniqueConnection);
  pub.connect("reset", flagged, 1);  // not through validateType: the flag stays
  EXPECT_EQ(1, pub.emitSignal("reset", nullptr, 0.0f));
  EXPECT_EQ(1, direct->calls);
  EXPECT_EQ(0, blocking->calls);
  EXPECT_EQ(0, flagged->calls);
  EXPECT_EQ(0, pub.emitSignal("nothing", nullptr)) << "no entry: no frame, no count";
  EXPECT_TRUE(SignalPublisher::callStack().empty());
}

TEST_F(PublisherTest, NestedEmissionAndTheCallStackQuestions) {
  Thermometer inner;
  std::vector<std::string> seen;
  auto probeInner = std::make_shared<Probe>(&r2, "inner", zq::Direct, [&] {
    EXPECT_EQ(inner.getPtr(), SignalPublisher::currentPublisher());
    EXPECT_EQ(pub.getPtr(), SignalPublisher::firstPublisher());
    EXPECT_TRUE(SignalPublisher::isPublisher(pub.getPtr()));
    seen.push_back(SignalPublisher::currentSignal());
    EXPECT_EQ(2u, SignalPublisher::callStack().size());
  });
  inner.connect("reset", probeInner, 1);
  add("changed", &r1, "outer", zq::Direct, [&] {
    EXPECT_EQ(zq::Direct, SignalPublisher::currentSignalType());
    inner.emitSignal("reset", nullptr);
    seen.push_back(SignalPublisher::currentSignal());
  });

  EXPECT_EQ(1, pub.emitSignal("changed", zq::makeArguments(1.0, "x")));
  EXPECT_EQ((std::vector<std::string>{"reset", "changed"}), seen);

  EXPECT_FALSE(SignalPublisher::currentPublisher());
  EXPECT_EQ(zq::Disconnected, SignalPublisher::currentSignalType());
  EXPECT_FALSE(SignalPublisher::isPublisher(pub.getPtr()));
}

TEST_F(PublisherTest, AnExceptionFromADirectSlotLeavesItsFrameOnTheStack) {
  add("reset", &r1, "throws", zq::Direct, [] { throw std::runtime_error("slot failed"); });
  auto after = add("reset", &r2, "after");
  EXPECT_THROW(pub.emitSignal("reset", nullptr), std::runtime_error);
  EXPECT_EQ(0, after->calls) << "the rest are not served";
  EXPECT_EQ("reset", SignalPublisher::currentSignal()) << "the failed emission's frame stays";
  // A stack of one's own can be put in place, e.g. to clear up after such a failure.
  std::list<zq::CallStackFrame> fresh;
  std::list<zq::CallStackFrame>* failed = SignalPublisher::swapStack(&fresh);
  EXPECT_TRUE(SignalPublisher::callStack().empty());
  failed->clear();
  EXPECT_EQ(&fresh, SignalPublisher::swapStack(failed));
}

TEST(SignalPublisherLifeTest, DestroyedReachesADirectSlotWithThePublishersAddress) {
  struct Watcher {
    void gone(SignalPublisher* who) { seen = who; }
    SignalPublisher* seen = nullptr;
  } watcher;
  auto thermometer = std::make_unique<Thermometer>();
  SignalPublisher* address = thermometer.get();
  ASSERT_TRUE(thermometer->connect("destroyed", &watcher, &Watcher::gone));
  thermometer->cleanUp();
  EXPECT_EQ(address, watcher.seen);
  watcher.seen = nullptr;

  ASSERT_TRUE(thermometer->connect("destroyed", &watcher, &Watcher::gone));
  thermometer.reset();
  EXPECT_EQ(address, watcher.seen);
}

TEST(SignalPublisherLifeTest, AGuardBuiltBeforeResetPtrStaysProtected) {
  auto thermometer = std::make_unique<Thermometer>();
  zq::GuardedPtr<SignalPublisher> ptr = thermometer->getPtr();
  {
    zq::SharedCountPtrGuard before(ptr);
    thermometer->resetPtr();
    EXPECT_TRUE(before.isProtected());
    zq::SharedCountPtrGuard after(ptr);
    EXPECT_FALSE(after.isProtected());
  }
}

TEST(SignalPublisherLifeTest, ASlotMayDestroyItsPublisherDuringTheEmission) {
  auto thermometer = std::make_unique<Thermometer>();
  int later = 0;
  thermometer->connect("reset", [&] { thermometer.reset(); });
  thermometer->connect("reset", [&] { ++later; });
  Thermometer* raw = thermometer.get();
  EXPECT_EQ(1, raw->emit(Thermometer::reset));
  EXPECT_EQ(0, later) << "destruction disconnected the rest";
  EXPECT_EQ(nullptr, thermometer);
}

// Several threads connect, disconnect and emit on shared publishers; what counts is that it
// stays consistent and clean under the sanitizers.
TEST(SignalPublisherStressTest, ConnectDisconnectAndEmitFromManyThreads) {
  Thermometer publishers[2];
  std::atomic<long> calls(0);
  struct Receiver {
    void onChanged(double, const std::string&) { ++*calls; }
    std::atomic<long>* calls;
  };
  // Receivers outlive every thread: a slot may still run just after its disconnect.
  std::vector<Receiver> receivers(4, Receiver{&calls});
  for (Thermometer& p : publishers) p.getPtr();  // one record each, before the threads race for it
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      Receiver* receiver = &receivers[t];
      for (unsigned n = 0; n < 100000; ++n) {
        Thermometer& p = publishers[(n / 4 + t) % 2];
        switch ((n + t) % 4) {
          case 0:
            p.connect(Thermometer::changed, receiver, &Receiver::onChanged, zq::Direct | zq::UniqueConnection);
            break;
          case 1:
            p.measure(n);
            break;
          case 2:
            if (n % 3 == 0) p.disconnect("changed", receiver, &Receiver::onChanged);
            (void)p.countConnected("", receiver, "");
            break;
          default:
            p.emit(Thermometer::reset);
            zq::SharedCountPtrGuard guard(p.getPtr());
            EXPECT_TRUE(guard.isProtected());
        }
      }
      for (Thermometer& q : publishers) q.disconnectFrom(receiver, "");
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_GT(calls.load(), 0);
  for (Thermometer& p : publishers) EXPECT_EQ(0u, p.countConnected("changed", nullptr, ""));
}

}  // namespace
