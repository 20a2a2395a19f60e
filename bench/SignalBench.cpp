// Emission of a signal with one int argument to 0, 1 and 10 direct slots, beside
// Boost.Signals2 and a plain list of std::function: through the typed templates, and through
// the type-erased interface a plug-in uses (a declaration by name, a hand-written connection,
// emitSignal with an ArgumentVector built per emission or built once). Queued delivery to
// one slot on the default run loop, in batches of 1000 and in bursts of 200 000 messages,
// beside a bare boost::asio::post of an equivalent lambda to an io_context run by one
// thread. Compare the ratios, not the times.
#include <zq/signals/SignalPublisher.h>

#include <benchmark/benchmark.h>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/signals2/signal.hpp>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace {

// libstdc++ counts shared pointers without locked instructions until a process starts its
// first thread. Programs using this library have threads, and the queued benchmarks start
// some anyway: start one now, so that the figures don't depend on which benchmarks are run.
const bool kMultiThreaded = [] {
  std::thread([] {}).join();
  return true;
}();

class Publisher : public zq::SignalPublisher {
 public:
  static constexpr zq::Signal<int> value{"value"};
  Publisher() { declareSignal(value); }
  ~Publisher() override { resetPtr(); }
};

void ZqEmit(benchmark::State& state) {
  Publisher publisher;
  long sum = 0;
  for (int i = 0; i < state.range(0); ++i) publisher.connect(Publisher::value, [&sum](int v) { sum += v; });
  int n = 0;
  for (auto _ : state) benchmark::DoNotOptimize(publisher.emit(Publisher::value, ++n));
  benchmark::DoNotOptimize(sum);
}

// A plug-in's publisher and slot, written against the type-erased interface only.
class ErasedPublisher : public zq::SignalPublisher {
 public:
  ErasedPublisher() { declareSignal(createDeclaration("changed", zq::TypePair("int", typeid(int).name()))); }
  ~ErasedPublisher() override { resetPtr(); }

  void connectSlot(std::shared_ptr<zq::ConnectionImpl> slot, zq::ConnectionType type, const void* receiver) {
    const int position = validateType(type, "changed", receiver, "onChanged");
    if (position != 0) connect("changed", std::move(slot), position);
  }
};

class IntSlot : public zq::ConnectionImplCpp {
 public:
  IntSlot(std::atomic<long>& sum, zq::ConnectionType type)
      : zq::ConnectionImplCpp(&sum, "onChanged", type, nullptr), m_sum(sum) {}
  void call_slot(std::shared_ptr<zq::ArgumentVector> args) override {
    if (const int* value = zq::argument_cast<int>((*args)[0]))
      m_sum.store(m_sum.load(std::memory_order_relaxed) + *value + 1, std::memory_order_release);
  }

 private:
  std::atomic<long>& m_sum;
};

void ErasedEmit(benchmark::State& state) {
  ErasedPublisher publisher;
  std::atomic<long> sum(0);
  for (int i = 0; i < state.range(0); ++i)
    publisher.connectSlot(std::make_shared<IntSlot>(sum, zq::Direct), zq::Direct, &sum);
  int i = 0;
  for (auto _ : state) {
    ++i;
    benchmark::DoNotOptimize(publisher.emitSignal(
        "changed", std::make_shared<zq::ArgumentVector>(new zq::GenericArgument<int>(i)), 0.0f, __FILE__, __LINE__));
  }
  benchmark::DoNotOptimize(sum.load());
}

void ErasedEmitShared(benchmark::State& state) {
  ErasedPublisher publisher;
  std::atomic<long> sum(0);
  for (int i = 0; i < state.range(0); ++i)
    publisher.connectSlot(std::make_shared<IntSlot>(sum, zq::Direct), zq::Direct, &sum);
  const std::shared_ptr<zq::ArgumentVector> args =
      std::make_shared<zq::ArgumentVector>(new zq::GenericArgument<int>(7));
  for (auto _ : state) benchmark::DoNotOptimize(publisher.emitSignal("changed", args, 0.0f, __FILE__, __LINE__));
  benchmark::DoNotOptimize(sum.load());
}

void BoostSignals2Emit(benchmark::State& state) {
  boost::signals2::signal<void(int)> signal;
  long sum = 0;
  for (int i = 0; i < state.range(0); ++i) signal.connect([&sum](int v) { sum += v; });
  int n = 0;
  for (auto _ : state) signal(++n);
  benchmark::DoNotOptimize(sum);
}

void FunctionListEmit(benchmark::State& state) {
  std::vector<std::function<void(int)>> slots;
  long sum = 0;
  slots.reserve(state.range(0));
  for (int i = 0; i < state.range(0); ++i) slots.emplace_back([&sum](int v) { sum += v; });
  int n = 0;
  for (auto _ : state) {
    ++n;
    for (const auto& slot : slots) slot(n);
  }
  benchmark::DoNotOptimize(sum);
}

// Both queued forms wait for their batch to be delivered, so a message counts once it has run.
void awaitDelivery(const std::atomic<long>& delivered, long sent) {
  while (delivered.load(std::memory_order_acquire) < sent) std::this_thread::yield();
}

void ZqQueuedEmit(benchmark::State& state) {
  Publisher publisher;
  std::atomic<long> delivered(0);
  publisher.connect(
      Publisher::value, [&delivered](int) { delivered.fetch_add(1, std::memory_order_release); }, zq::Queued);
  const long batch = state.range(0);
  long sent = 0;
  for (auto _ : state) {
    for (long i = 0; i < batch; ++i) publisher.emit(Publisher::value, static_cast<int>(i));
    sent += batch;
    awaitDelivery(delivered, sent);
  }
  state.SetItemsProcessed(sent);
  publisher.disconnect("", nullptr, "");
}

// The type-erased form of the above: each emission builds its own arguments.
void ErasedQueuedEmit(benchmark::State& state) {
  ErasedPublisher publisher;
  std::atomic<long> delivered(0);
  publisher.connectSlot(std::make_shared<IntSlot>(delivered, zq::Queued), zq::Queued, &delivered);
  const long batch = state.range(0);
  long sent = 0;
  long expected = 0;  // each delivery adds its value and 1
  for (auto _ : state) {
    for (long i = 0; i < batch; ++i) {
      publisher.emitSignal("changed", std::make_shared<zq::ArgumentVector>(new zq::GenericArgument<int>(0)), 0.0f,
                           __FILE__, __LINE__);
    }
    sent += batch;
    expected += batch;
    awaitDelivery(delivered, expected);
  }
  state.SetItemsProcessed(sent);
  publisher.disconnect("", nullptr, "");
}

void AsioPost(benchmark::State& state) {
  boost::asio::io_context context;
  auto work = boost::asio::make_work_guard(context);
  std::thread runner([&context] { context.run(); });
  std::atomic<long> delivered(0);
  long sum = 0;
  const long batch = state.range(0);
  long sent = 0;
  for (auto _ : state) {
    for (long i = 0; i < batch; ++i)
      boost::asio::post(context, [&delivered, &sum, v = static_cast<int>(i)] {
        sum += v;
        delivered.fetch_add(1, std::memory_order_release);
      });
    sent += batch;
    awaitDelivery(delivered, sent);
  }
  state.SetItemsProcessed(sent);
  work.reset();
  runner.join();
  benchmark::DoNotOptimize(sum);
}

}  // namespace

BENCHMARK(ZqQueuedEmit)->Arg(1000)->Arg(200000)->UseRealTime();
BENCHMARK(ErasedQueuedEmit)->Arg(1000)->Arg(200000)->UseRealTime();
BENCHMARK(AsioPost)->Arg(1000)->Arg(200000)->UseRealTime();
BENCHMARK(ZqEmit)->Arg(0)->Arg(1)->Arg(10);
BENCHMARK(ErasedEmit)->Arg(1)->Arg(10);
BENCHMARK(ErasedEmitShared)->Arg(1)->Arg(10);
BENCHMARK(BoostSignals2Emit)->Arg(0)->Arg(1)->Arg(10);
BENCHMARK(FunctionListEmit)->Arg(0)->Arg(1)->Arg(10);
