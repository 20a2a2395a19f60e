// Driving the built zq program as a user's shell would: arguments, standard input, the two
// output streams and the exit status, in a scratch folder of its own.
#pragma once

#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>

namespace zq {
namespace test {

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

inline std::vector<std::string> folderEntries(const std::string& folder) {
  std::vector<std::string> names;
  if (DIR* dir = ::opendir(folder.c_str())) {
    while (const dirent* entry = ::readdir(dir)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(dir);
  }
  return names;
}

// The result of one run, printable in a failure message.
struct Outcome : ProgramResult {
  std::string describe() const {
    return "status " + std::to_string(exitCode) + "\n--- stdout\n" + out + "\n--- stderr\n" + err;
  }
};

class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char folder[] = "/tmp/zq-tool-test-XXXXXX";
    ASSERT_NE(nullptr, ::mkdtemp(folder));
    m_folder = folder;
  }
  void TearDown() override { std::system(("rm -rf '" + m_folder + "'").c_str()); }

  // `zq ARGS...` in the scratch folder, with `input` on standard input.
  Outcome zq(const std::vector<std::string>& args, const std::string& input = std::string()) const {
    std::vector<std::string> argv{ZQ_TOOL_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    return peer(argv, input);
  }
  // Any other program, for the peers the tool must agree with.
  Outcome peer(const std::vector<std::string>& argv, const std::string& input = std::string()) const {
    ProgramRun options;
    options.input = input;
    options.workingDirectory = m_folder;
    Outcome result;
    static_cast<ProgramResult&>(result) = runProgram(argv, options);
    return result;
  }
  // A path in the scratch folder.
  std::string path(const std::string& name) const { return m_folder + "/" + name; }
  std::string file(const std::string& name, const std::string& content) const {
    writeFile(path(name), content);
    return path(name);
  }
  // Skips a test of a command that this build of the tool does not have.
  bool lacks(const std::string& command) const { return zq({"help", command}).exitCode != 0; }

  std::string m_folder;
};

// The run expression is evaluated once.
#define ZQ_EXPECT_RUN(run, status)                                 \
  do {                                                             \
    const ::zq::test::Outcome& zqOutcome = (run);                  \
    EXPECT_TRUE(zqOutcome.exited) << zqOutcome.describe();         \
    EXPECT_EQ(status, zqOutcome.exitCode) << zqOutcome.describe(); \
  } while (false)

// A usage or failure line: one line on standard error beginning "zq: ".
#define ZQ_EXPECT_ERROR(run, status)                                                                 \
  do {                                                                                               \
    const ::zq::test::Outcome& zqFailed = (run);                                                     \
    ZQ_EXPECT_RUN(zqFailed, status);                                                                 \
    EXPECT_EQ(0u, zqFailed.err.rfind("zq: ", 0)) << zqFailed.describe();                             \
    EXPECT_EQ(1, std::count(zqFailed.err.begin(), zqFailed.err.end(), '\n')) << zqFailed.describe(); \
  } while (false)

#define ZQ_SKIP_WITHOUT(command) \
  if (lacks(command)) GTEST_SKIP() << "this zq has no '" command "' command"

}  // namespace test
}  // namespace zq
