// The log beside spdlog at the same settings: a statement filtered out by the threshold, and
// a line written to a file and flushed per line.
#include <zq/foundation/Log.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#ifdef ZQ_BENCH_HAVE_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace {

const std::string kFile = "/tmp/zq-bench-log.txt";
const std::string kPeerFile = "/tmp/zq-bench-spdlog.txt";

void zqFiltered(benchmark::State& state) {
  zq::Log log;
  log.setLogFile(zq::wconvert(kFile), true);
  log.setErrorLogLevel();
  int i = 0;
  for (auto _ : state) {
    ZQ_LOG_ON(log, zq::Log::Message, "zq::bench::filtered", "value " << ++i << " text " << 3.25);
  }
  benchmark::DoNotOptimize(i);
  log.closeLogFile();
}
BENCHMARK(zqFiltered);

void zqWrittenFlushed(benchmark::State& state) {
  zq::Log log;
  log.setLogFile(zq::wconvert(kFile), true);
  int i = 0;
  for (auto _ : state) {
    ZQ_LOG_ON(log, zq::Log::Message, "zq::bench::written", "value " << ++i << " text " << 3.25);
  }
  log.closeLogFile();
  std::remove(kFile.c_str());
}
BENCHMARK(zqWrittenFlushed);

// The process's own log, as a program uses it: one number per line, written and flushed.
void zqFileLine(benchmark::State& state) {
  zq::Log& log = zq::Log::instance();
  log.setLogFile(zq::wconvert(kFile), true);
  log.setLogLevel(zq::Log::Debug);
  int i = 0;
  for (auto _ : state) {
    ++i;
    ZQ_LOG(zq::Log::Message, "perf::fileLine", i);
  }
  log.closeLogFile();
  std::remove(kFile.c_str());
}
BENCHMARK(zqFileLine);

#ifdef ZQ_BENCH_HAVE_SPDLOG
// spdlog at its defaults, flushing every line as the log does.
void spdlogFileLine(benchmark::State& state) {
  auto logger = spdlog::basic_logger_mt("fileLine", kPeerFile, true);
  logger->flush_on(spdlog::level::trace);
  int i = 0;
  for (auto _ : state) {
    ++i;
    logger->info("{}", i);
  }
  spdlog::drop("fileLine");
  std::remove(kPeerFile.c_str());
}
BENCHMARK(spdlogFileLine);

std::shared_ptr<spdlog::logger> peer(const char* name) {
  auto logger = spdlog::basic_logger_mt(name, kPeerFile, true);
  // The same line shape: local time with milliseconds, level, function, body.
  logger->set_pattern("%Y.%m.%d %H:%M:%S.%e %-8l [%v");
  logger->flush_on(spdlog::level::trace);
  return logger;
}

void spdlogFiltered(benchmark::State& state) {
  auto logger = peer("filtered");
  logger->set_level(spdlog::level::err);
  int i = 0;
  for (auto _ : state) logger->info("spdlog::bench::filtered] value {} text {}", ++i, 3.25);
  benchmark::DoNotOptimize(i);
  spdlog::drop("filtered");
}
BENCHMARK(spdlogFiltered);

void spdlogWrittenFlushed(benchmark::State& state) {
  auto logger = peer("written");
  logger->set_level(spdlog::level::trace);
  int i = 0;
  for (auto _ : state) logger->info("spdlog::bench::written] value {} text {}", ++i, 3.25);
  spdlog::drop("written");
  std::remove(kPeerFile.c_str());
}
BENCHMARK(spdlogWrittenFlushed);
#endif

}  // namespace
