// zq on a terminal: secrets asked for without echo, and the progress bar that only a terminal
// sees by default.
#include "tests/tools/ToolTestSupport.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <utility>

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zq {
namespace test {
namespace {

struct TerminalRun {
  int status = -1;     // exit status, or -1 when it did not exit
  int signal = 0;      // the signal that ended it, if one did
  std::string screen;  // all the terminal showed
};

// Runs zq on a new terminal in `folder`; each time the screen shows the next prompt of
// `dialogue`, its answer is typed.
TerminalRun onTerminal(const std::string& folder, const std::vector<std::string>& args,
                       const std::vector<std::pair<std::string, std::string>>& dialogue = {}) {
  std::vector<std::string> argv{ZQ_TOOL_PATH};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char*> pointers;
  pointers.reserve(argv.size() + 1);
  for (std::string& a : argv) pointers.push_back(&a[0]);
  pointers.push_back(nullptr);

  TerminalRun result;
  int master = -1;
  const pid_t pid = ::forkpty(&master, nullptr, nullptr, nullptr);
  if (pid == 0) {
    if (::chdir(folder.c_str()) != 0) ::_exit(126);
    ::execv(pointers[0], pointers.data());
    ::_exit(127);
  }
  if (pid < 0) return result;
  std::size_t step = 0, seen = 0;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  char buffer[4096];
  while (std::chrono::steady_clock::now() < end) {
    if (step < dialogue.size()) {
      const std::size_t at = result.screen.find(dialogue[step].first, seen);
      if (at != std::string::npos) {
        seen = at + dialogue[step].first.size();
        const std::string& answer = dialogue[step++].second;
        if (::write(master, answer.data(), answer.size()) < 0) break;
        continue;
      }
    }
    pollfd p{master, POLLIN, 0};
    if (::poll(&p, 1, 1000) <= 0) continue;
    const ssize_t n = ::read(master, buffer, sizeof buffer);
    if (n <= 0) break;  // EIO once the program has closed the terminal
    result.screen.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(master);
  int status = 0;
  if (std::chrono::steady_clock::now() >= end) ::kill(pid, SIGKILL);
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  return result;
}

using TerminalTest = ToolTest;

TEST_F(TerminalTest, SecretsAreAskedForWithoutEchoAndConfirmed) {
  ZQ_SKIP_WITHOUT("crypt");
  const std::string expected = zq({"crypt", "$5$abc"}, "open sesame\n").out;
  TerminalRun run =
      onTerminal(m_folder, {"crypt", "$5$abc"}, {{"key: ", "open sesame\n"}, {"key again: ", "open sesame\n"}});
  EXPECT_EQ(0, run.status) << run.screen;
  EXPECT_NE(std::string::npos, run.screen.find(expected.substr(0, expected.size() - 1))) << run.screen;
  EXPECT_EQ(std::string::npos, run.screen.find("open sesame")) << "the key was echoed:\n" << run.screen;

  run = onTerminal(m_folder, {"crypt"}, {{"key: ", "one\n"}, {"key again: ", "other\n"}});
  EXPECT_EQ(1, run.status) << run.screen;
  EXPECT_NE(std::string::npos, run.screen.find("zq: the two keys differ")) << run.screen;

  // Checking asks once.
  run =
      onTerminal(m_folder, {"crypt", "--check", expected.substr(0, expected.size() - 1)}, {{"key: ", "open sesame\n"}});
  EXPECT_EQ(0, run.status) << run.screen;
}

TEST_F(TerminalTest, ProgressShowsOnATerminalForLargeFilesOnly) {
  ZQ_SKIP_WITHOUT("digest");
  file("small", std::string(1 << 20, 's'));
  file("large", std::string((16 << 20) + 1, 'l'));
  TerminalRun run = onTerminal(m_folder, {"digest", "small"});
  EXPECT_EQ(0, run.status);
  EXPECT_EQ(std::string::npos, run.screen.find("MiB/s")) << run.screen;
  run = onTerminal(m_folder, {"digest", "large"});
  EXPECT_EQ(0, run.status);
  EXPECT_NE(std::string::npos, run.screen.find("of 16.0 MiB")) << run.screen;
  EXPECT_NE(std::string::npos, run.screen.find("  large")) << run.screen;
  run = onTerminal(m_folder, {"digest", "--no-progress", "large"});
  EXPECT_EQ(std::string::npos, run.screen.find("MiB/s")) << run.screen;
}

// Ctrl-C while a file is written: whenever it lands, no partial or temporary file is left.
TEST_F(TerminalTest, AnInterruptLeavesNoPartialFile) {
  ZQ_SKIP_WITHOUT("encrypt");
  file("key", "k");
  file("big", std::string(64 << 20, 'b'));
  const TerminalRun run =
      onTerminal(m_folder, {"encrypt", "--progress", "--key-file", "key", "big", "out"}, {{"% ", "\x03"}});
  EXPECT_TRUE(run.signal == SIGINT || run.status == 0) << run.screen;
  for (const std::string& name : folderEntries(m_folder)) {
    EXPECT_NE(0u, name.rfind(".zq-", 0)) << "left behind: " << name;
    if (name == "out") {
      EXPECT_EQ(16u + (64 << 20) + 16, readFile(path("out")).size());
    }
  }
}

}  // namespace
}  // namespace test
}  // namespace zq
