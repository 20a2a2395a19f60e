// Emission of a signal with one int argument to 0, 1 and 10 direct slots, beside
// Boost.Signals2 and a plain list of std::function; and queued delivery to one slot on the
// default run loop (post and delivery, in batches of 1000 messages) beside a bare
// boost::asio::post of an equivalent lambda to an io_context run by one thread. Compare the
// ratios, not the times.
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

BENCHMARK(ZqQueuedEmit)->Arg(1000)->UseRealTime();
BENCHMARK(AsioPost)->Arg(1000)->UseRealTime();
BENCHMARK(ZqEmit)->Arg(0)->Arg(1)->Arg(10);
BENCHMARK(BoostSignals2Emit)->Arg(0)->Arg(1)->Arg(10);
BENCHMARK(FunctionListEmit)->Arg(0)->Arg(1)->Arg(10);
