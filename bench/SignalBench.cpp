// Emission of a signal with one int argument to 0, 1 and 10 direct slots, beside
// Boost.Signals2 and a plain list of std::function. Compare the ratios, not the times.
#include <zq/signals/SignalPublisher.h>

#include <benchmark/benchmark.h>
#include <boost/signals2/signal.hpp>

#include <functional>
#include <vector>

namespace {

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
  for (int i = 0; i < state.range(0); ++i) slots.emplace_back([&sum](int v) { sum += v; });
  int n = 0;
  for (auto _ : state) {
    ++n;
    for (const auto& slot : slots) slot(n);
  }
  benchmark::DoNotOptimize(sum);
}

}  // namespace

BENCHMARK(ZqEmit)->Arg(0)->Arg(1)->Arg(10);
BENCHMARK(BoostSignals2Emit)->Arg(0)->Arg(1)->Arg(10);
BENCHMARK(FunctionListEmit)->Arg(0)->Arg(1)->Arg(10);
