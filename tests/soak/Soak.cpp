// The soak run: many threads at once emitting (direct, queued, delayed, forwarded), connecting and
// disconnecting, destroying and remaking publishers, queueing and cancelling deferred calls and
// destroying their owners, for ZQ_SOAK_SECONDS (default 600). At the end it checks what the
// threading core promises: every emission on a connection that stayed connected was delivered
// exactly once, no churned connection got more than it took, no call of an owner ran after
// cancelCalls or the destructor returned, and every queued function and argument was freed.
// Leaks and races are the sanitizers' part: run it under tsan and asan (tools/dev/soak.sh).
#include <zq/signals/RunLoop.h>
#include <zq/signals/SignalPublisher.h>
#include <zq/threads/CallOwner.h>

#include "tests/support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

// Live captured objects: each queued function and each slot holds one, so a count of zero at the
// end means every one of them was destroyed.
std::atomic<long> g_liveTokens{0};
struct Token {
  Token() { g_liveTokens.fetch_add(1, std::memory_order_relaxed); }
  Token(const Token&) { g_liveTokens.fetch_add(1, std::memory_order_relaxed); }
  Token& operator=(const Token&) = default;
  ~Token() { g_liveTokens.fetch_sub(1, std::memory_order_relaxed); }
};

class Source : public zq::SignalPublisher {
 public:
  static constexpr zq::Signal<int> reading{"reading"};
  Source() { declareSignal(reading); }
  ~Source() override { resetPtr(); }
};

// The stable lane: one source, never disconnected, whose every emission must arrive once on each
// of its three paths (direct, queued on the test's loop, forwarded to a queued slot on the
// default loop).
struct StableLane {
  Source source;
  Source target;
  std::atomic<long> sent{0};
  std::atomic<long> direct{0};
  std::atomic<long> queued{0};
  std::atomic<long> forwarded{0};
};

// A churned source with its ledger: what emissions took (emit's count) and what slots got.
struct ChurnSlot {
  std::mutex mutex;
  std::shared_ptr<Source> source;
  std::atomic<long> taken{0};
  std::atomic<long> delivered{0};
};

// A call owner with the epoch of its last finished cancellation. Queueing holds `lock` shared
// and reads the epoch first; cancelling holds it exclusive and raises the epoch after
// cancelCalls returned. A call that runs with an older epoch than the present one ran after its
// cancellation: the fault this run looks for.
struct OwnerSlot {
  std::shared_mutex lock;
  std::unique_ptr<zq::CallOwner> owner = std::make_unique<zq::CallOwner>();
  std::shared_ptr<std::atomic<int>> epoch = std::make_shared<std::atomic<int>>(0);
};

struct Ledger {
  std::atomic<long> callsRun{0};
  std::atomic<long> lateCalls{0};
  std::atomic<long> churnExcess{0};
  std::atomic<long> operations{0};
};

int soakSeconds() {
  const char* text = std::getenv("ZQ_SOAK_SECONDS");
  const int seconds = text != nullptr ? std::atoi(text) : 600;
  return seconds > 0 ? seconds : 600;
}

void stableEmitter(StableLane& lane, const std::atomic<bool>& stop, Ledger& ledger, unsigned seed) {
  std::minstd_rand random(seed);
  while (!stop.load()) {
    // Half a second is cut to none but still goes through the loop: the delayed path.
    const float delay = random() % 4 == 0 ? 0.5f : 0.0f;
    lane.sent.fetch_add(1);
    lane.source.emitAfter(delay, Source::reading, static_cast<int>(random() % 1000));
    ledger.operations.fetch_add(1, std::memory_order_relaxed);
  }
}

void churner(std::vector<std::unique_ptr<ChurnSlot>>& slots, zq::RunLoop& loop, const std::atomic<bool>& stop,
             Ledger& ledger, unsigned seed) {
  std::minstd_rand random(seed);
  while (!stop.load()) {
    ChurnSlot& slot = *slots[random() % slots.size()];
    std::shared_ptr<Source> source;
    {
      std::lock_guard<std::mutex> lock(slot.mutex);
      if (random() % 50 == 0) slot.source = std::make_shared<Source>();  // the old one dies with its last user
      source = slot.source;
    }
    const void* receiver = &slot;
    switch (random() % 6) {
      case 0:
      case 1: {
        ChurnSlot* ledgerOf = &slot;
        auto count = [ledgerOf, token = Token()](int) { ledgerOf->delivered.fetch_add(1); };
        const zq::ConnectionType type = random() % 2 == 0 ? zq::Queued : zq::Direct;
        source->connect(Source::reading, &slot, count, type, random() % 2 == 0 ? loop.service() : nullptr);
        break;
      }
      case 2:
        source->disconnect("reading", receiver, std::string());
        break;
      default: {
        const float delay = random() % 8 == 0 ? 0.5f : 0.0f;
        slot.taken.fetch_add(source->emitAfter(delay, Source::reading, static_cast<int>(random() % 1000)));
        break;
      }
    }
    ledger.operations.fetch_add(1, std::memory_order_relaxed);
  }
}

void caller(std::vector<std::unique_ptr<OwnerSlot>>& owners, const std::atomic<bool>& stop, Ledger& ledger,
            unsigned seed) {
  std::minstd_rand random(seed);
  while (!stop.load()) {
    OwnerSlot& slot = *owners[random() % owners.size()];
    const unsigned action = random() % 20;
    if (action < 15) {
      std::shared_lock<std::shared_mutex> lock(slot.lock);
      const std::shared_ptr<std::atomic<int>> epoch = slot.epoch;
      const int queuedAt = epoch->load();
      auto body = [epoch, queuedAt, &ledger, token = Token()] {
        ledger.callsRun.fetch_add(1, std::memory_order_relaxed);
        if (epoch->load() != queuedAt) ledger.lateCalls.fetch_add(1);
      };
      const auto delay = std::chrono::microseconds(random() % 3000);
      if (action < 12)
        slot.owner->asyncCall(body, delay);
      else
        slot.owner->appendAsyncCall(body, delay, 5ms);
    } else if (action < 19) {
      std::unique_lock<std::shared_mutex> lock(slot.lock);
      slot.owner->cancelCalls(false);
      slot.epoch->fetch_add(1);
    } else {
      // Destroying an owner is its last cancellation; a new one takes its place.
      std::unique_lock<std::shared_mutex> lock(slot.lock);
      slot.owner.reset();
      slot.epoch->fetch_add(1);
      slot.owner = std::make_unique<zq::CallOwner>();
      slot.epoch = std::make_shared<std::atomic<int>>(0);
    }
    ledger.operations.fetch_add(1, std::memory_order_relaxed);
  }
}

TEST(Soak, SignalsAndDeferredCallsUnderLoad) {
  const int seconds = soakSeconds();
  zq::RunLoop loop;
  loop.start();
  Ledger ledger;
  {
    StableLane lane;
    lane.source.connect(Source::reading, &lane, [&lane](int) { lane.direct.fetch_add(1); });
    lane.source.connect(
        Source::reading, &lane.sent, [&lane](int) { lane.queued.fetch_add(1); }, zq::Queued, loop.service());
    lane.target.connect(
        Source::reading, &lane.forwarded, [&lane](int) { lane.forwarded.fetch_add(1); }, zq::Queued);
    ASSERT_TRUE(lane.source.forward(Source::reading, lane.target.getPtr()));

    std::vector<std::unique_ptr<ChurnSlot>> churnSlots;
    churnSlots.reserve(4);
    for (int i = 0; i < 4; ++i) {
      churnSlots.push_back(std::make_unique<ChurnSlot>());
      churnSlots.back()->source = std::make_shared<Source>();
    }
    std::vector<std::unique_ptr<OwnerSlot>> owners;
    owners.reserve(6);
    for (int i = 0; i < 6; ++i) owners.push_back(std::make_unique<OwnerSlot>());

    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    threads.reserve(10);
    unsigned seed = 1;
    for (int i = 0; i < 2; ++i)
      threads.emplace_back(stableEmitter, std::ref(lane), std::cref(stop), std::ref(ledger), seed++);
    for (int i = 0; i < 4; ++i)
      threads.emplace_back(churner, std::ref(churnSlots), std::ref(loop), std::cref(stop), std::ref(ledger), seed++);
    for (int i = 0; i < 4; ++i)
      threads.emplace_back(caller, std::ref(owners), std::cref(stop), std::ref(ledger), seed++);

    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(100ms);
    stop = true;
    for (auto& thread : threads) thread.join();

    // Every emission of the stable lane arrives on each path once the loops have served it.
    const long sent = lane.sent.load();
    EXPECT_TRUE(zq::test::waitFor([&] { return lane.queued.load() == sent && lane.forwarded.load() == sent; }, 60s))
        << "sent " << sent << ", queued " << lane.queued << ", forwarded " << lane.forwarded;
    EXPECT_EQ(sent, lane.direct.load());

    // Churned connections: nothing delivered beyond what the emissions took; the rest dropped
    // by a disconnection.
    for (auto& slot : churnSlots) {
      std::lock_guard<std::mutex> lock(slot->mutex);
      slot->source.reset();
    }
    std::this_thread::sleep_for(1500ms);  // the last delayed deliveries
    for (auto& slot : churnSlots) EXPECT_LE(slot->delivered.load(), slot->taken.load());

    for (auto& slot : owners) slot->owner.reset();
    EXPECT_EQ(0, ledger.lateCalls.load()) << "calls ran after their owner's cancellation returned";
    std::printf("soak: %d s, %ld operations, %ld stable emissions, %ld deferred calls run\n", seconds,
                ledger.operations.load(), sent, ledger.callsRun.load());
  }
  loop.stop();
  // Queued frames and cancelled calls are freed by the threads that serve them.
  EXPECT_TRUE(zq::test::waitFor([] { return g_liveTokens.load() == 0; }, 30s))
      << g_liveTokens.load() << " captured objects never freed";
}

}  // namespace
