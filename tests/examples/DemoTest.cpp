// The demonstration program walks the road of one event; if any step of it breaks, so does
// this test.
#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>

namespace zq {
namespace {

std::string readFile(const std::string& path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(DemoTest, WalksTheRoadOfOneEventAndExitsCleanly) {
#ifndef ZQ_DEMO_PATH
  GTEST_SKIP() << "built without the examples";
#else
  char folder[] = "/tmp/zq-demo-test-XXXXXX";
  ASSERT_NE(nullptr, mkdtemp(folder));
  const test::ChildResult result = test::runChild({ZQ_DEMO_PATH}, folder, std::chrono::seconds(60));
  ASSERT_TRUE(result.exited) << result.output;
  EXPECT_EQ(0, result.exitCode) << result.output;
  EXPECT_EQ(std::string::npos, result.output.find("Sanitizer")) << result.output;

  // Each step on the console, in an order that cause and effect impose (the worker's later
  // emissions may interleave with the run loop's deliveries); the log file holds the same lines.
  const char* const steps[] = {
      R"(LOG      \[demo::main\] 1\. log set to the console and zq_demo\.log)",
      R"(LOG      \[zq::plugin::Loader::loadComponentPack\] Plugin loader: Loading component pack ".*/PlugIns/WeatherStation\.so")",
      R"(LOG      \[zq::plugin::Loader::loadComponentPack\] Plugin loader: \tCreating component "demo\.WeatherStation")",
      R"(LOG      \[demo::main\] 3\. the component answered getInterface\("demo::IWeatherStation"\))",
      R"(LOG      \[demo::WeatherStation::setLanguage\] place names are now in French)",
      R"(LOG      \[demo::main\] 5\. queued slot connected to "measured" \(main thread (\d+)\))",
      R"(LOG      \[demo::WeatherStation::run\] worker thread (\d+) emits measured\("jardin", 18\))",
      R"(LOG      \[demo::Host::onMeasured\] run loop thread (\d+) received measured\("jardin", 18\); queueing a deferred call)",
      R"(LOG      \[demo::Host::record\] call thread (\d+) records grenier = 24 \(3 of 3\))",
      R"(LOG      \[demo::main\] 7\. the deferred calls finished the work: the readings add up to 63)",
      // The record "jardin = 18\ncave = 21\ngrenier = 24\n": 35 bytes, so 16 + 48 encrypted.
      R"(LOG      \[demo::main\] 7a\. the record encrypted into zq_demo_readings\.aes \(64 bytes, AES-256\); SHA-256 of the plain text 8Th6F3upsP88wAPUKRxnaEDXQ9TtuZZQ1e4n0AXHpDY=)",
      R"(LOG      \[demo::main\] 7b\. read back and decrypted, 3 readings: the two digests agree)",
      R"(---- SignalPublisher Info ----)",
      R"(measured\t\(std::string,int\))",
      R"(  ------queued------>  void\*@)",
      R"(LOG      \[demo::main\] 9\. disconnected, component released, loader shut down; exit 0)",
  };
  std::string::size_type from = 0;
  std::string threads[4];
  int stepIndex = 0;
  for (const char* step : steps) {
    std::smatch match;
    const std::string rest = result.output.substr(from);
    ASSERT_TRUE(std::regex_search(rest, match, std::regex(step))) << "missing, or out of order: " << step << "\n"
                                                                  << result.output;
    if (match.size() > 1) threads[stepIndex++ % 4] = match[1];
    from += match.position(0) + match.length(0);
  }
  // Main, worker, run loop and call thread are four different threads.
  for (int i = 0; i < 4; ++i)
    for (int j = i + 1; j < 4; ++j) EXPECT_NE(threads[i], threads[j]) << "threads " << i << " and " << j;

  // Only the encrypted record stays.
  EXPECT_EQ(64u, readFile(std::string(folder) + "/zq_demo_readings.aes").size());
  EXPECT_FALSE(std::ifstream(std::string(folder) + "/zq_demo_readings.txt").is_open());

  const std::string log = readFile(std::string(folder) + "/zq_demo.log");
  EXPECT_NE(std::string::npos, log.find("[demo::main] 7. the deferred calls finished the work")) << log;
  EXPECT_NE(std::string::npos, log.find("[demo::main] 9. disconnected")) << log;
  std::system((std::string("rm -rf ") + folder).c_str());
#endif
}

}  // namespace
}  // namespace zq
