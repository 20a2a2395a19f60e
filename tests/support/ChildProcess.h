// Running a program as a child process and reading how it ended.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace zq {
namespace test {

struct ChildResult {
  bool exited = false;  // ended through exit(); false when killed by a signal or timed out
  int exitCode = -1;    // exit status when `exited`
  int signal = 0;       // the signal that ended it, if any
  bool timedOut = false;
  std::string output;  // standard output and standard error, interleaved
};

// Runs argv[0] (searched in PATH when it has no slash) with the given arguments and working
// folder (empty: the current one). A child still running at `timeout` is killed.
ChildResult runChild(const std::vector<std::string>& argv, const std::string& workingDirectory = std::string(),
                     std::chrono::seconds timeout = std::chrono::seconds(120));

struct ProgramRun {
  std::string input;                     // written to standard input, which is then closed
  std::vector<std::string> environment;  // "NAME=value" entries added to the test's own
  std::string workingDirectory;          // empty: the current one
  std::chrono::seconds timeout = std::chrono::seconds(120);
};

struct ProgramResult {
  bool exited = false;  // ended through exit(); false when killed by a signal or timed out
  int exitCode = -1;
  int signal = 0;
  bool timedOut = false;
  std::string out;  // standard output
  std::string err;  // standard error
};

// Runs a program as a user's shell would, with standard input, output and error apart. The child
// has a session of its own, so it has no terminal to ask anything of.
ProgramResult runProgram(const std::vector<std::string>& argv, const ProgramRun& run = ProgramRun());

// `argv` run as the unprivileged user "nobody" when the tests run as root (through setpriv), so
// that file permissions and RLIMIT_NPROC bind the child; unchanged otherwise.
std::vector<std::string> asUnprivileged(std::vector<std::string> argv);

// The path of the running test program, for tests that re-run it with a filter.
std::string selfExecutable();

}  // namespace test
}  // namespace zq
