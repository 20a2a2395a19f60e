// The library where the system refuses: no thread to be had (a lowered RLIMIT_NPROC, which binds
// only an unprivileged user), and a log file whose file system fills up. Each case runs the probe
// program in a child under the limit; a refusal must give the documented answer, lose nothing
// and never hang.
#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

Lines linesOf(const std::string& output) {
  Lines lines;
  std::istringstream in(output);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The probe in `mode` with no thread beyond its first; the soft limit alone, so that the probe
// can lift it before it ends (a leak check at exit needs a thread).
Lines withoutThreads(const std::string& mode) {
  Lines command = zq::test::asUnprivileged({ZQ_FAILURE_PROBE_PATH, mode});
  command.insert(command.begin(), {"prlimit", "--nproc=1:"});
  const zq::test::ChildResult result = zq::test::runChild(command, std::string(), std::chrono::seconds(60));
  EXPECT_FALSE(result.timedOut) << mode << " hung";
  EXPECT_TRUE(result.exited && result.exitCode == 0) << result.output;
  return linesOf(result.output);
}

TEST(ThreadRefusedTest, CallThreadRefusalThrowsAndLeavesNothingQueued) {
  const Lines attempt = {"asyncCall: std::system_error", "queued calls: 0"};
  EXPECT_EQ(withoutThreads("calls"), (Lines{attempt[0], attempt[1], attempt[0], attempt[1], "done"}));
}

TEST(ThreadRefusedTest, DefaultRunLoopRefusalComesOutOfEveryEmission) {
  const std::string refused = "emit: boost::thread_resource_error";
  EXPECT_EQ(withoutThreads("runloop"), (Lines{refused, refused, "done"}));
}

TEST(ThreadRefusedTest, ClientThreadStartThrowsAndWaitReturns) {
  const std::string refused =
      "start: void __cdecl zq::Thread::start(const enum zq::Thread::EThreadPriority &) Starting thread failed";
  EXPECT_EQ(withoutThreads("thread"), (Lines{refused, refused, "wait: 1", "done"}));
}

// A tmpfs of 16 kB in a mount namespace of the probe's own (RLIMIT_FSIZE where it may not mount).
TEST(FullDiskTest, LogKeepsWhatFitsInOrderAndANewFileWorksOnceThereIsRoom) {
  std::string pattern = (fs::temp_directory_path() / "zq-full-XXXXXX").string();
  ASSERT_NE(nullptr, ::mkdtemp(&pattern[0]));
  const zq::test::ChildResult result =
      zq::test::runChild({ZQ_FAILURE_PROBE_PATH, "log", pattern}, std::string(), std::chrono::seconds(60));
  std::error_code ignored;
  fs::remove_all(pattern, ignored);
  ASSERT_TRUE(result.exited && result.exitCode == 0) << result.output;
  const Lines lines = linesOf(result.output);
  ASSERT_EQ(5u, lines.size()) << result.output;
  EXPECT_TRUE(lines[0] == "full by: tmpfs" || lines[0] == "full by: RLIMIT_FSIZE") << lines[0];
  EXPECT_EQ(Lines(lines.begin() + 1, lines.end()),
            (Lines{"logged: 2000 lines", "on disk: some, in order, cut", "new file: written", "done"}));
}

}  // namespace
