// What an emission holds and lets go of: frames reused from one emission to the next must
// leave nothing behind, and memory made on one thread and freed on another must come back
// whole.
#include <zq/signals/internal/SharedCount.h>
#include <zq/signals/internal/SignalMemory.h>

#include "tests/signals/Station.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Wait.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using zq::SignalPublisher;
using zq::test::Station;
using zq::test::waitFor;

class Source : public Station {
 public:
  static constexpr zq::Signal<int> tock{"tock"};
  static constexpr zq::Signal<int> tack{"tack"};
  static constexpr zq::Signal<std::shared_ptr<int>> value{"value"};
  Source() {
    declareSignal(tock);
    declareSignal(tack);
    declareSignal(value);
  }
};

TEST(EmissionResourcesTest, AnEmissionLetsGoOfWhatItHeldAndReusedFramesCarryTheirOwnName) {
  Source source;
  auto probe = std::make_shared<zq::test::Probe>(nullptr, "probe");
  std::weak_ptr<zq::test::Probe> watch = probe;
  source.connect("tock", probe, 1);
  std::vector<std::string> names;
  // The slot ends the emission's own connection and reenters: a nested frame is needed.
  source.connect(Source::tock, [&](int n) {
    names.push_back(SignalPublisher::currentSignal());
    if (n == 1) source.emit(Source::tock, 2);
    source.disconnect("tock", nullptr, "probe");
  });
  source.connect(Source::tack, [&](int) { names.push_back(SignalPublisher::currentSignal()); });
  probe.reset();

  std::shared_ptr<zq::ArgumentVector> args = zq::makeArguments(1);
  EXPECT_EQ(2, source.emitSignal("tock", args));
  EXPECT_EQ(1, args.use_count()) << "the frame let go of the arguments";
  EXPECT_TRUE(watch.expired()) << "the snapshot and the frames let go of the disconnected connection";
  EXPECT_TRUE(SignalPublisher::callStack().empty());

  source.emit(Source::tack, 1);  // same length, other text
  source.emit("tock", 3);
  EXPECT_EQ((std::vector<std::string>{"tock", "tock", "tack", "tock"}), names);
}

// A thread keeps counts on the records of the publishers it emits for; however its frames end
// (popped, left by a slot that threw, in a stack of the client's own), every count is given
// back when the thread ends, also for publishers it turned away from.
TEST(EmissionResourcesTest, AThreadGivesBackEveryPublisherCountItKept) {
  constexpr int kPublishers = 7;  // more than a thread keeps
  std::vector<std::unique_ptr<Source>> sources;
  std::vector<zq::GuardedPtr<SignalPublisher>> watched;
  for (int i = 0; i < kPublishers; ++i) {
    sources.push_back(std::make_unique<Source>());
    watched.push_back(sources.back()->getPtr());
  }
  std::vector<std::uint64_t> before;
  before.reserve(watched.size());
  for (const auto& ptr : watched) before.push_back(ptr.getCounter()->pointerCount());
  std::vector<std::string> publishers;  // what the slots saw
  for (int i = 0; i + 1 < kPublishers; ++i) {
    Source& next = *sources[i + 1];
    sources[i]->connect(Source::tock, [&next](int n) {
      if (n > 0) next.emit(Source::tock, n - 1);
    });
  }
  sources[0]->connect(Source::tack, [](int n) {
    if (n == 0) throw std::runtime_error("left on the stack");
  });
  sources[1]->connect(Source::tack, [&](int) {
    const zq::GuardedPtr<SignalPublisher> current = SignalPublisher::currentPublisher();
    publishers.push_back(current == watched[1] ? "same" : "other");
  });

  std::thread([&] {
    for (int round = 0; round < 50; ++round) {
      sources[round % kPublishers]->emit(Source::tock, kPublishers);
      sources[1]->emit(Source::tack, round);
    }
    EXPECT_THROW(sources[0]->emit(Source::tack, 0), std::runtime_error);
    EXPECT_EQ(1u, SignalPublisher::callStack().size());
    std::list<SignalPublisher::CallStackFrame> own;
    std::list<SignalPublisher::CallStackFrame>* previous = SignalPublisher::swapStack(&own);
    sources[2]->emit(Source::tock, 3);
    EXPECT_THROW(sources[0]->emit(Source::tack, 0), std::runtime_error);
    SignalPublisher::swapStack(previous);
    own.clear();
  }).join();

  EXPECT_EQ(std::vector<std::string>(50, "same"), publishers);
  for (int i = 0; i < kPublishers; ++i)
    EXPECT_EQ(before[i], watched[i].getCounter()->pointerCount()) << "publisher " << i;
}

// A slot that destroys its publisher still finds the publisher's record on its frame.
TEST(EmissionResourcesTest, APublisherDestroyedByItsSlotLeavesItsRecordToTheEmission) {
  zq::GuardedPtr<SignalPublisher> seen;
  std::thread([&] {
    auto* source = new Source();
    source->connect(Source::tock, [&](int) {
      delete source;
      seen = SignalPublisher::currentPublisher();
    });
    source->emit(Source::tock, 1);
    EXPECT_TRUE(seen.getCounter() != nullptr);
    EXPECT_TRUE(seen.getCounter()->isDestroyed());
  }).join();
  EXPECT_EQ(1u, seen.getCounter()->pointerCount()) << "only the test's own pointer is left";
}

// A thread reads a publisher's table once and keeps what it read while the table's lock has
// not been held since: every change, on this thread or another, reaches the next emission.
TEST(EmissionResourcesTest, EveryChangeToTheTableReachesTheNextEmission) {
  Source source;
  int calls = 0;
  auto first = std::make_shared<zq::test::Probe>(&calls, "first", zq::Direct, [&] { ++calls; });
  EXPECT_EQ(0, source.emit(Source::tock, 1)) << "nothing connected, and the thread remembers it";
  source.connect("tock", first, 1);
  EXPECT_EQ(1, source.emit(Source::tock, 1));
  std::thread([&] { source.connect(Source::tock, [&](int) { ++calls; }); }).join();
  EXPECT_EQ(2, source.emit(Source::tock, 1)) << "a connection made on another thread";
  std::thread([&] { source.disconnect("tock", &calls, "first"); }).join();
  EXPECT_EQ(1, source.emit(Source::tock, 1)) << "a connection taken out on another thread";
  // A connection's end is its owners' business: what the thread remembers does not keep it.
  std::weak_ptr<zq::test::Probe> watched = first;
  first.reset();
  EXPECT_TRUE(watched.expired());
  source.connect(Source::tock, [&](int) { source.disconnect("tock", nullptr, ""); });
  EXPECT_EQ(2, source.emit(Source::tock, 1));
  EXPECT_EQ(0, source.emit(Source::tock, 1)) << "emptied by a slot";
  EXPECT_EQ(5, calls);
}

TEST(EmissionResourcesTest, WhatAThreadRemembersIsNeverTakenForAnotherPublisherOrSignal) {
  // More publishers and signals than a thread remembers, and publishers made again at the
  // address of one that ended.
  std::vector<int> calls(40, 0);
  for (int round = 0; round < 3; ++round) {
    std::vector<std::unique_ptr<Source>> sources;
    for (std::size_t i = 0; i < 20; ++i) {
      sources.push_back(std::make_unique<Source>());
      sources.back()->connect(Source::tock, [&calls, i](int) { ++calls[2 * i]; });
      sources.back()->connect(Source::tack, [&calls, i](int) { ++calls[2 * i + 1]; });
    }
    for (int pass = 0; pass < 2; ++pass)
      for (std::size_t i = 0; i < 20; ++i) {
        EXPECT_EQ(1, sources[i]->emit(Source::tock, 0));
        EXPECT_EQ(1, sources[i]->emit(Source::tack, 0));
      }
  }
  EXPECT_EQ(std::vector<int>(40, 6), calls);
}

// A typed emission may hand its argument block to the thread's next one: only when nobody
// kept it, and never with the old values still alive.
TEST(EmissionResourcesTest, TypedArgumentsAreEndedWithTheEmissionAndNeverReusedWhileKept) {
  Source source;
  std::vector<std::shared_ptr<zq::ArgumentVector>> kept;
  std::vector<int> seen;
  source.connect(Source::value, [&](const std::shared_ptr<int>& v) {
    if (*v == 1) kept.push_back(SignalPublisher::callStack().back().args);
    if (*v == 2) source.emit(Source::value, std::make_shared<int>(3));  // nested, same types
    seen.push_back(*v);
    if (*v == 4) throw std::runtime_error("slot failed");
  });
  auto readKept = [&](std::size_t i) { return **zq::argument_cast<std::shared_ptr<int>>((*kept.at(i))[0]); };

  auto first = std::make_shared<int>(1);
  source.emit(Source::value, first);
  EXPECT_EQ(2, first.use_count()) << "a slot kept the arguments";
  source.emit(Source::value, std::make_shared<int>(2));
  EXPECT_EQ(1, readKept(0)) << "kept arguments are not refilled by later emissions";
  kept.clear();
  EXPECT_EQ(1, first.use_count());

  auto plain = std::make_shared<int>(5);
  source.emit(Source::value, plain);
  EXPECT_EQ(1, plain.use_count()) << "the values end with the emission, a reused block or not";

  EXPECT_THROW(source.emit(Source::value, std::make_shared<int>(4)), std::runtime_error);
  ASSERT_EQ(1u, SignalPublisher::callStack().size());
  kept.push_back(SignalPublisher::callStack().back().args);
  SignalPublisher::callStack().clear();
  source.emit(Source::value, std::make_shared<int>(6));
  EXPECT_EQ(4, readKept(0)) << "a throwing slot's frame keeps its arguments";
  EXPECT_EQ((std::vector<int>{1, 3, 2, 5, 4, 6}), seen);
}

// Made before the thread's first emission, so ended after what that emission left.
struct EmitsAtThreadEnd {
  ~EmitsAtThreadEnd() {
    for (int i = 0; i < 2; ++i) source->emit(Source::value, std::make_shared<int>(10 + i));
  }
  Source* source = nullptr;
};

// A value that emits when the last of its moves ends.
struct EmitsWhenEnded {
  explicit EmitsWhenEnded(Source* s) : source(s) {}
  EmitsWhenEnded(EmitsWhenEnded&& other) noexcept : source(other.source) { other.source = nullptr; }
  ~EmitsWhenEnded() {
    if (source != nullptr) source->emit(Source::value, std::make_shared<int>(20));
  }
  Source* source;
};

TEST(EmissionResourcesTest, EmissionsFromAThreadsLastDestructorsFindTheirStackAndValues) {
  Source source;
  class Ending : public SignalPublisher {
   public:
    Ending() { declareSignal(ending); }
    ~Ending() override { resetPtr(); }
    const zq::Signal<EmitsWhenEnded> ending{"ending"};
  } ending;
  std::vector<int> seen;
  source.connect(Source::value, [&](const std::shared_ptr<int>& v) { seen.push_back(*v); });
  ending.connect(ending.ending, [](const EmitsWhenEnded&) { throw std::runtime_error("x"); });
  std::thread([&] {
    thread_local EmitsAtThreadEnd last;
    last.source = &source;
    source.emit(Source::value, std::make_shared<int>(1));
    // The throwing slot leaves its frame, and the value in it, to the end of the thread.
    EXPECT_THROW(ending.emit(ending.ending, EmitsWhenEnded(&source)), std::runtime_error);
  }).join();
  EXPECT_EQ((std::vector<int>{1, 10, 11, 20}), seen);
}

TEST(EmissionResourcesTest, QueuedArgumentsCrossThreadsIntactFromManyEmittersAndEndedThreads) {
  Source source;
  constexpr int kThreads = 3, kEach = 2000;
  // Longer than a short string's inline room: the text lives in the block's string.
  auto text = [](int t, int i) { return std::to_string(i) + std::string(30, '.') + std::to_string(t); };
  std::vector<int> next(kThreads, 0);  // only the default run loop's one thread touches it
  std::atomic<int> delivered(0), wrong(0);
  source.connect(
      Station::reading,
      [&](const std::string& s, int t) {
        if (t < 0 || t >= kThreads || s != text(t, next[t]++)) ++wrong;
        ++delivered;
      },
      zq::Queued);
  source.getPtr();  // made before the emitters race for it
  std::vector<std::thread> emitters;
  emitters.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t)
    emitters.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) source.emit(Station::reading, text(t, i), t);
    });
  for (std::thread& emitter : emitters) emitter.join();  // their cached blocks go back to the store
  ASSERT_TRUE(waitFor([&] { return delivered.load() == kThreads * kEach; }));
  EXPECT_EQ(0, wrong.load()) << "each emitter's texts arrive whole and in order";
  source.disconnect("", nullptr, "");
}

TEST(EmissionResourcesTest, SignalMemoryMadeOnOneThreadIsFreedOnAnotherAndReused) {
  for (std::size_t size : {std::size_t(24), std::size_t(64), std::size_t(65), std::size_t(256), std::size_t(257),
                           std::size_t(768), std::size_t(4096)}) {
    std::vector<void*> blocks(500);
    std::thread([&] {
      for (std::size_t i = 0; i < blocks.size(); ++i) {
        blocks[i] = zq::internal::allocateSignalMemory(size);
        std::memset(blocks[i], static_cast<int>(i), size);  // the whole size is usable
      }
    }).join();
    std::thread([&] {
      for (std::size_t i = 0; i < blocks.size(); ++i) {
        EXPECT_EQ(static_cast<unsigned char>(i), static_cast<unsigned char*>(blocks[i])[size - 1]);
        zq::internal::freeSignalMemory(blocks[i], size);
      }
    }).join();
    for (void*& block : blocks) block = zq::internal::allocateSignalMemory(size);
    std::sort(blocks.begin(), blocks.end());
    EXPECT_EQ(blocks.end(), std::adjacent_find(blocks.begin(), blocks.end())) << "no block is handed out twice";
    for (void* block : blocks) zq::internal::freeSignalMemory(block, size);
  }
}

#if defined(ZQ_INTERNAL_ASAN)
// Under the address sanitizer the caches stay on, as in a release build, and what they park
// is poisoned: a reference kept past its emission is caught as with fresh memory each time.
TEST(EmissionResourcesChild, DISABLED_ReadsAnArgumentOfAnEndedEmission) {
  Source source;
  const std::string* kept = nullptr;
  source.connect(Station::reading, [&](const std::string& s, int) { kept = &s; });
  source.emit(Station::reading, std::string(40, 'x'), 1);
  source.emit(Station::reading, std::string(40, 'y'), 2);              // the same space again
  std::printf("%d\n", *reinterpret_cast<const volatile char*>(kept));  // the string itself, not its text
}

TEST(EmissionResourcesChild, DISABLED_ReadsFreedSignalMemory) {
  auto* block = static_cast<volatile char*>(zq::internal::allocateSignalMemory(64));
  zq::internal::freeSignalMemory(const_cast<char*>(block), 64);
  std::printf("%d\n", block[8]);
}

TEST(EmissionResourcesTest, TheAddressSanitizerSeesIntoTheCaches) {
  for (const char* name : {"ReadsAnArgumentOfAnEndedEmission", "ReadsFreedSignalMemory"}) {
    const zq::test::ChildResult child =
        zq::test::runChild({zq::test::selfExecutable(), std::string("--gtest_filter=*.DISABLED_") + name,
                            "--gtest_also_run_disabled_tests"});
    EXPECT_FALSE(child.exited && child.exitCode == 0) << name;
    EXPECT_NE(std::string::npos, child.output.find("use-after-poison")) << name << "\n" << child.output;
  }
}
#endif

}  // namespace
