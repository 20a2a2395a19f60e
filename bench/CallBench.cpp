// Deferred calls beside Boost.Asio timers: 100 000 functions queued for distinct due times
// from one thread and run on another, until the last one has run.
#include <zq/threads/CallOwner.h>

#include <benchmark/benchmark.h>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace {

constexpr int kCalls = 100000;

// Counts runs and lets the queueing thread wait for the last one. Outlives every queue.
class Completion {
 public:
  void reset() { m_done = 0; }
  void ranOne() {
    if (m_done.fetch_add(1) + 1 == kCalls) {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_finished.notify_one();
    }
  }
  void wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_finished.wait(lock, [this] { return m_done.load() == kCalls; });
  }

 private:
  std::atomic<int> m_done{0};
  std::mutex m_mutex;
  std::condition_variable m_finished;
};

void BM_CallOwner_QueueAndRun(benchmark::State& state) {
  Completion completion;
  zq::CallOwner owner;
  for (auto _ : state) {
    completion.reset();
    const auto base = std::chrono::steady_clock::now();
    for (int i = 0; i < kCalls; ++i)
      owner.asyncCall([&completion] { completion.ranOne(); }, base + std::chrono::nanoseconds(i));
    completion.wait();
  }
  state.SetItemsProcessed(state.iterations() * kCalls);
}
BENCHMARK(BM_CallOwner_QueueAndRun)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_AsioSteadyTimer_QueueAndRun(benchmark::State& state) {
  Completion completion;
  boost::asio::io_context io;
  auto work = boost::asio::make_work_guard(io);
  std::thread runner([&io] { io.run(); });
  std::vector<std::unique_ptr<boost::asio::steady_timer>> timers;
  timers.reserve(kCalls);
  for (auto _ : state) {
    completion.reset();
    timers.clear();
    const auto base = std::chrono::steady_clock::now();
    for (int i = 0; i < kCalls; ++i) {
      timers.emplace_back(new boost::asio::steady_timer(io, base + std::chrono::nanoseconds(i)));
      timers.back()->async_wait([&completion](const boost::system::error_code&) { completion.ranOne(); });
    }
    completion.wait();
  }
  state.SetItemsProcessed(state.iterations() * kCalls);
  work.reset();
  runner.join();
}
BENCHMARK(BM_AsioSteadyTimer_QueueAndRun)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
