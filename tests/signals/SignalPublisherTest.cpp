#include "tests/signals/Station.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using zq::SignalPublisher;
using zq::test::Probe;
using zq::test::Station;
using Texts = std::vector<std::string>;

struct Display {
  void show(const std::string& room) { shown.push_back(room); }
  void showValue(const std::string& room, int value) { shown.push_back(room + "=" + std::to_string(value)); }
  void clear() const { ++clears; }
  Texts shown;
  mutable int clears = 0;
};

Texts g_freeCalls;
void onReading(const std::string& room) { g_freeCalls.push_back(room); }
void onLong(const std::string&, long) {}

TEST(SignalPublisherTest, ClientConnectsMembersFunctionsAndLambdasAndEmitsTypedValues) {
  zq::test::LogCapture log;
  Station station;
  Display display;
  Texts order;
  EXPECT_TRUE(station.connect(Station::reading, &display, &Display::show));  // takes fewer arguments
  EXPECT_TRUE(station.connect("reading", &display, &Display::showValue));
  EXPECT_TRUE(station.connect(Station::tick, &display, &Display::clear));  // const member
  EXPECT_TRUE(station.connect("reading", &onReading, zq::Direct | zq::UniqueConnection));
  EXPECT_FALSE(station.connect("reading", &onReading, zq::Direct | zq::UniqueConnection));
  EXPECT_TRUE(station.connect(
      "reading", [&](const std::string&, int) { order.push_back("first"); }, zq::Direct | zq::PrependConnection));
  EXPECT_TRUE(station.connect("reading", &display, [&](const std::string&) { order.push_back("owned"); }));

  EXPECT_EQ(5, station.emit(Station::reading, "hall", 3));
  EXPECT_EQ(5, station.emit("reading", std::wstring(L"attic"), 4)) << "wide text travels as std::string";
  EXPECT_EQ(1, station.emit(Station::tick));
  EXPECT_EQ((Texts{"hall", "hall=3", "attic", "attic=4"}), display.shown);
  EXPECT_EQ((Texts{"hall", "attic"}), g_freeCalls);
  EXPECT_EQ((Texts{"first", "owned", "first", "owned"}), order);
  EXPECT_EQ(1, display.clears);

  log.clear();
  EXPECT_EQ(5, station.emit("reading", 7, "x"));
  EXPECT_EQ(4u, display.shown.size());
  EXPECT_EQ(5u, log.linesWith("argument mismatch on signal delivery").size());

  // Disconnecting by receiver and slot takes out exactly that slot.
  station.disconnect("reading", &display, &Display::show);
  EXPECT_FALSE(station.isConnected("reading", &display, zq::internal::memberSlotName(&Display::show)));
  station.disconnectFrom(&display, "");
  station.disconnect("reading", &onReading);
  EXPECT_EQ(1u, station.countConnected("", nullptr, ""));

  log.clear();
  EXPECT_FALSE(station.connect("reading", &onLong));
  EXPECT_FALSE(station.connect("reading", [](const std::string&, int, int) {}));
  EXPECT_FALSE(station.connect("reading", [](int) {})) << "compared from the first argument";
  EXPECT_EQ(3u, log.linesWith("type-mismatch on signal connection (reading->").size());
  EXPECT_EQ(1u, station.countConnected("reading", nullptr, ""));
}

TEST(SignalPublisherTest, DeclarationsAndTheirChecks) {
  const zq::TypePair a("A", "a"), b("B", "b");
  Station t;
  t.declareSignal(SignalPublisher::createDeclaration("reading", a));
  EXPECT_EQ(2u, t.signalDeclaration("reading").size()) << "a second declaration replaces the first";

  EXPECT_TRUE(t.isCallCompatible("reading", SignalPublisher::createDeclaration("other", zq::TypePair("x", "a"))));
  EXPECT_FALSE(t.isCallCompatible("reading", SignalPublisher::createDeclaration("reading", b)));
  EXPECT_FALSE(t.isCallCompatible("reading", SignalPublisher::createDeclaration("reading")));
  EXPECT_FALSE(t.isCallCompatible("undeclared", SignalPublisher::createDeclaration("undeclared")));

  const zq::SignalDeclaration ints = zq::makeDeclaration<int, std::string>("n");
  EXPECT_TRUE(SignalPublisher::isCallCompatible(ints, zq::makeArguments(1, "one", 2.0)));
  EXPECT_FALSE(SignalPublisher::isCallCompatible(ints, zq::makeArguments(1)));
  EXPECT_FALSE(SignalPublisher::isCallCompatible(ints, zq::makeArguments(1L, "one")));
  EXPECT_TRUE(SignalPublisher::isCallCompatible(zq::makeDeclaration<>("n"), nullptr));
}

// Connects hand-made connections, to see the table as the library sees it.
class PublisherTest : public ::testing::Test {
 protected:
  std::shared_ptr<Probe> add(const char* signal, const void* receiver, const char* slot,
                             zq::ConnectionType type = zq::Direct, std::function<void()> body = {}) {
    const int position = pub.validateType(type, signal, receiver, slot);
    auto probe = std::make_shared<Probe>(receiver, slot, type, std::move(body));
    if (position != 0) pub.connect(signal, probe, position);
    return probe;
  }
  Station pub;
  int r1 = 0, r2 = 0;
};

TEST_F(PublisherTest, ValidateTypeStripsFlagsAndDecidesThePlaceAndUndeclaredSignalsAreRefused) {
  add("reading", &r1, "a");
  zq::ConnectionType type = zq::Queued | zq::UniqueConnection;
  EXPECT_EQ(0, pub.validateType(type, "reading", &r1, "a"));
  EXPECT_EQ(zq::Queued, type) << "flags are stripped even when nothing is connected";
  type = zq::Direct | zq::UniqueConnection | zq::PrependConnection;
  EXPECT_EQ(-1, pub.validateType(type, "reading", &r1, "b"));
  type = static_cast<zq::ConnectionType>(zq::Disconnected | 0x10000);
  EXPECT_EQ(1, pub.validateType(type, "reading", &r1, "a"));
  EXPECT_EQ(zq::Disconnected, type);

  zq::test::LogCapture log;
  add("nope", &r1, "a");
  EXPECT_FALSE(pub.isConnected("nope", nullptr, ""));
  ASSERT_EQ(1u, log.bodies().size()) << "an undeclared signal is refused with one line";
  EXPECT_EQ("[zq::SignalPublisher::connect] connecting an undeclared signal (nope).", log.bodies()[0]);
  EXPECT_EQ(1u, log.linesWith("WARNING").size());
}

TEST_F(PublisherTest, QueriesWithTheirAsymmetryAndTheDisconnectFamily) {
  auto a = add("reading", &r1, "a");
  auto b = add("reading", &r1, "b");
  auto c = add("tick", &r2, "a");
  add("tick", &pub, "self");
  EXPECT_TRUE(pub.isConnected("", &r2, "a")) << "an empty signal searches every entry";
  EXPECT_FALSE(pub.isConnected("reading", &r2, ""));
  EXPECT_EQ(2u, pub.countConnected("", nullptr, "a"));
  EXPECT_FALSE(pub.isConnected("tick", &pub, "")) << "a query about the publisher itself finds nothing";
  EXPECT_EQ(1u, pub.countConnected("tick", &pub, "")) << "but it is counted";

  pub.disconnect("reading", &r1, "");
  EXPECT_EQ(zq::Disconnected, a->type());
  EXPECT_EQ(zq::Disconnected, b->type());
  EXPECT_FALSE(pub.isConnected("reading", nullptr, "")) << "the emptied entry is gone";
  pub.disconnect("unknown", &r1, "a");  // no entry: no failure
  pub.disconnectFrom(nullptr, "a");
  EXPECT_EQ(zq::Disconnected, c->type());
  EXPECT_EQ(1u, pub.countConnected("", nullptr, ""));
}

TEST_F(PublisherTest, MoveConnectionsKeepsTheTargetsEntries) {
  Station target;
  auto mine = add("reading", &r1, "mine");
  add("tick", &r1, "moved");
  target.connect("reading", std::make_shared<Probe>(&r2, "theirs"), 1);

  pub.moveConnectionsTo(target);
  EXPECT_EQ(0u, pub.countConnected("", nullptr, ""));
  EXPECT_TRUE(target.isConnected("reading", &r2, "theirs"));
  EXPECT_FALSE(target.isConnected("reading", &r1, "mine")) << "the target's entry stays, the moved one is dropped";
  EXPECT_TRUE(target.isConnected("tick", &r1, "moved"));
  EXPECT_EQ(zq::Direct, mine->type()) << "moving does not disconnect";

  target.moveConnectionsTo(target);
  EXPECT_EQ(2u, target.countConnected("", nullptr, "")) << "moving onto itself does nothing";

  // Left to leak if the threads lock up, as they then keep using them.
  auto* left = new Station();
  auto* right = new Station();
  left->connect("tick", std::make_shared<Probe>(&r1, "left"), 1);
  ASSERT_TRUE(zq::test::bothReturn(
      [=] {
        for (int i = 0; i < 20000; ++i) left->moveConnectionsTo(*right);
      },
      [=] {
        for (int i = 0; i < 20000; ++i) right->moveConnectionsTo(*left);
      }))
      << "two publishers moving their connections crosswise locked each other up";
  EXPECT_EQ(1u, left->countConnected("", nullptr, "") + right->countConnected("", nullptr, ""));
  delete left, delete right;
}

TEST_F(PublisherTest, AnEmissionCountsDirectCallsSeesDisconnectsAtOnceAndNewConnectionsNextTime) {
  add("tick", &r1, "first", zq::Direct, [&] { pub.disconnect("tick", &r2, "second"); });
  auto second = add("tick", &r2, "second");
  std::shared_ptr<Probe> late;
  add("tick", &r2, "third", zq::Direct, [&] {
    if (!late) late = add("tick", &r2, "late");
  });
  auto blocking = add("tick", &r1, "blocking", zq::Blocking);
  auto flagged = std::make_shared<Probe>(&r1, "flagged", zq::Direct | zq::UniqueConnection);
  pub.connect("tick", flagged, 1);  // not through validateType: the flag stays
  EXPECT_EQ(2, pub.emitSignal("tick", nullptr)) << "stopped, Blocking and flagged connections are not counted";
  EXPECT_EQ(0, second->calls + blocking->calls + flagged->calls);
  EXPECT_EQ(0, late->calls) << "a connection made during an emission waits for the next";
  EXPECT_EQ(3, pub.emitSignal("tick", nullptr));
  EXPECT_EQ(0, pub.emitSignal("nothing", nullptr)) << "no entry: no frame, no count";
  EXPECT_TRUE(SignalPublisher::callStack().empty());
}

TEST_F(PublisherTest, NestedEmissionAndTheCallStackQuestions) {
  Station inner;
  Texts seen;
  inner.connect(Station::tick, [&] {
    EXPECT_EQ(inner.getPtr(), SignalPublisher::currentPublisher());
    EXPECT_EQ(pub.getPtr(), SignalPublisher::firstPublisher());
    EXPECT_TRUE(SignalPublisher::isPublisher(pub.getPtr()));
    seen.push_back(SignalPublisher::currentSignal());
    EXPECT_EQ(2u, SignalPublisher::callStack().size());
  });
  add("reading", &r1, "outer", zq::Direct, [&] {
    EXPECT_EQ(zq::Direct, SignalPublisher::currentSignalType());
    inner.emitSignal("tick", nullptr);
    seen.push_back(SignalPublisher::currentSignal());
  });

  EXPECT_EQ(1, pub.emitSignal("reading", zq::makeArguments(std::string("x"), 1)));
  EXPECT_EQ((Texts{"tick", "reading"}), seen);
  EXPECT_FALSE(SignalPublisher::currentPublisher());
  EXPECT_EQ(zq::Disconnected, SignalPublisher::currentSignalType());
  EXPECT_FALSE(SignalPublisher::isPublisher(pub.getPtr()));
}

TEST_F(PublisherTest, AnExceptionFromADirectSlotLeavesItsFrameOnTheStack) {
  add("tick", &r1, "throws", zq::Direct, [] { throw std::runtime_error("slot failed"); });
  auto after = add("tick", &r2, "after");
  EXPECT_THROW(pub.emitSignal("tick", nullptr), std::runtime_error);
  EXPECT_EQ(0, after->calls) << "the rest are not served";
  EXPECT_EQ("tick", SignalPublisher::currentSignal()) << "the failed emission's frame stays";
  // A stack of one's own can be put in place, e.g. to clear up after such a failure.
  std::list<zq::CallStackFrame> fresh;
  std::list<zq::CallStackFrame>* failed = SignalPublisher::swapStack(&fresh);
  EXPECT_TRUE(SignalPublisher::callStack().empty());
  failed->clear();
  EXPECT_EQ(&fresh, SignalPublisher::swapStack(failed));
}

TEST(ForwardTest, AForwardReEmitsOnTheTargetCountsOnceAndAnswersFalseOnceTheTargetIsGone) {
  Station source;
  auto target = std::make_unique<Station>();
  int behind = 0;
  std::vector<SignalPublisher*> seen;
  auto note = [&] { seen.push_back(SignalPublisher::currentPublisher().get()); };
  target->connect(Station::tick, note);
  target->connect("tick", &behind, note);
  ASSERT_TRUE(source.forward(Station::tick, target->getPtr(), zq::Queued));
  EXPECT_EQ(1, source.emit(Station::tick)) << "one forward, whatever the target has behind it";
  EXPECT_EQ((std::vector<SignalPublisher*>(2, target.get())), seen) << "at once, whatever the forward's kind";
  EXPECT_TRUE(source.isConnected("tick", &behind, ""));
  EXPECT_FALSE(source.isConnected("tick", target.get(), "tick")) << "a forward does not answer for itself";
  EXPECT_EQ(1u, source.countConnected("tick", &behind, ""));

  zq::ConnectionImplForward forward(target->getPtr(), "tick", zq::Direct);
  target.reset();
  EXPECT_EQ(0, source.emit(Station::tick));
  EXPECT_FALSE(source.isConnected("tick", &behind, ""));
  EXPECT_EQ(0u, source.countConnected("tick", &behind, ""));
  EXPECT_EQ(1u, source.countConnected("tick", nullptr, "")) << "an unnamed query counts the row itself";
  EXPECT_FALSE(forward.is_call_compatible(zq::makeDeclaration<>("tick")));
  std::ostringstream dead;
  forward.print_debug_info(dead);
  EXPECT_EQ("forwards to ::tick", dead.str());
}

TEST(ForwardTest, DeclarationsCarryOverAndUndeclaredSourcesStillAnswerTrue) {
  Station source;
  auto target = std::make_unique<SignalPublisher>();
  zq::test::LogCapture log;
  ASSERT_TRUE(source.forward("reading", target->getPtr(), "measured"));
  const zq::SignalDeclaration& copied = target->signalDeclaration("measured");
  ASSERT_EQ(3u, copied.size());
  EXPECT_STREQ("measured", copied[0].second);
  EXPECT_TRUE(SignalPublisher::matchesType(copied[1], zq::ArgumentTraits<std::string>::type()));

  EXPECT_TRUE(source.forward("undeclared", target->getPtr(), zq::Direct)) << "true although connect refused";
  EXPECT_EQ(1u, log.linesWith("connecting an undeclared signal (undeclared).").size());
  EXPECT_FALSE(source.isConnected("undeclared", nullptr, ""));
  EXPECT_FALSE(target->isDeclared("undeclared"));

  const zq::SignalDeclaration declarations[] = {zq::makeDeclaration<>("tick"), zq::makeDeclaration<int>("count"),
                                                zq::SignalDeclaration()};
  source.forward(declarations, target->getPtr(), zq::Direct);
  EXPECT_TRUE(source.isConnected("tick", nullptr, ""));
  EXPECT_TRUE(target->isDeclared("tick"));
  target->resetPtr();
}

TEST(SignalPublisherLifeTest, ResetPtrKeepsEarlierGuardsAndDestroyedReachesADirectSlot) {
  struct Watcher {
    void gone(SignalPublisher* who) { seen = who; }
    SignalPublisher* seen = nullptr;
  } watcher;
  auto station = std::make_unique<Station>();
  SignalPublisher* const address = station.get();
  ASSERT_TRUE(station->connect("destroyed", &watcher, &Watcher::gone));
  station->cleanUp();
  EXPECT_EQ(address, watcher.seen);
  watcher.seen = nullptr;
  ASSERT_TRUE(station->connect("destroyed", &watcher, &Watcher::gone));

  zq::GuardedPtr<SignalPublisher> ptr = station->getPtr();
  {
    zq::SharedCountPtrGuard before(ptr);
    station->resetPtr();
    EXPECT_TRUE(before.isProtected());
    zq::SharedCountPtrGuard after(ptr);
    EXPECT_FALSE(after.isProtected());
  }
  station.reset();
  EXPECT_EQ(address, watcher.seen);
}

TEST(SignalPublisherLifeTest, ASlotThatThrowsAtTheEndIsLoggedAndTheEndGoesOn) {
  zq::test::LogCapture log;
  int receiver = 0;
  auto after = std::make_shared<Probe>(&receiver, "after");
  {
    Station station;
    station.connect("destroyed", [](SignalPublisher*) { throw std::runtime_error("slot failed"); });
    station.connect("destroyed", after, 1);
    station.connect("tick", std::make_shared<Probe>(&receiver, "tick"), 1);
    station.repeatSignal("tick", nullptr, boost::posix_time::hours(1), 2);
  }
  EXPECT_EQ(0, after->calls) << "the rest are not served";
  EXPECT_EQ(zq::Disconnected, after->type()) << "the end disconnects all the same";
  EXPECT_TRUE(SignalPublisher::callStack().empty()) << "no frame names the ended publisher";
  const Texts lines = log.linesWith("CRITICAL");
  ASSERT_EQ(1u, lines.size());
  EXPECT_NE(std::string::npos, lines[0].find("[zq::SignalPublisher::~SignalPublisher] a slot of \"destroyed\" threw: "
                                             "slot failed"))
      << lines[0];
}

TEST(SignalPublisherLifeTest, ASlotMayDestroyItsPublisherDuringTheEmission) {
  auto station = std::make_unique<Station>();
  int later = 0;
  station->connect("tick", [&] { station.reset(); });
  station->connect("tick", [&] { ++later; });
  Station* raw = station.get();
  EXPECT_EQ(1, raw->emit(Station::tick));
  EXPECT_EQ(0, later) << "destruction disconnected the rest";
}

// Several threads connect, disconnect and emit on shared publishers; what counts is that it
// stays consistent and clean under the sanitizers.
TEST(SignalPublisherStressTest, ConnectDisconnectAndEmitFromManyThreads) {
  Station publishers[2];
  std::atomic<long> calls(0);
  struct Receiver {
    void onReading(const std::string&, int) { ++*calls; }
    std::atomic<long>* calls;
  };
  // Receivers outlive every thread: a slot may still run just after its disconnect.
  std::vector<Receiver> receivers(4, Receiver{&calls});
  for (Station& p : publishers) p.getPtr();  // one record each, before the threads race for it
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      Receiver* receiver = &receivers[t];
      for (int n = 0; n < 100000; ++n) {
        Station& p = publishers[(n / 4 + t) % 2];
        switch ((n + t) % 4) {
          case 0:
            p.connect(Station::reading, receiver, &Receiver::onReading, zq::Direct | zq::UniqueConnection);
            break;
          case 1:
            p.emit(Station::reading, "kitchen", n);
            break;
          case 2:
            if (n % 3 == 0) p.disconnect("reading", receiver, &Receiver::onReading);
            (void)p.countConnected("", receiver, "");
            break;
          default:
            p.emit(Station::tick);
            zq::SharedCountPtrGuard guard(p.getPtr());
            EXPECT_TRUE(guard.isProtected());
        }
      }
      for (Station& q : publishers) q.disconnectFrom(receiver, "");
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_GT(calls.load(), 0);
  for (Station& p : publishers) EXPECT_EQ(0u, p.countConnected("reading", nullptr, ""));
}

// Threads that emitted on a new publisher at once each made its guarded record and assigned it
// while the others read it: a data race, and slots that saw records other than the publisher's.
TEST(SignalPublisherTest, ThreadsEmittingOnANewPublisherAtOnceShareOneRecord) {
  for (int round = 0; round < 100; ++round) {
    Station station;
    std::mutex seenMutex;
    std::vector<const void*> seen;
    station.connect(Station::tick, [&] {
      const void* record = SignalPublisher::currentPublisher().getCounter();
      std::lock_guard<std::mutex> lock(seenMutex);
      seen.push_back(record);
    });
    std::atomic<int> ready(0);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
      threads.emplace_back([&] {
        ++ready;
        while (ready.load() < 4) std::this_thread::yield();
        station.emit(Station::tick);
      });
    for (std::thread& thread : threads) thread.join();
    ASSERT_EQ(4u, seen.size());
    for (const void* record : seen) EXPECT_EQ(station.getPtr().getCounter(), record) << "round " << round;
  }
}

}  // namespace
