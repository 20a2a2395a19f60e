#include "tests/support/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zq {
namespace test {

ChildResult runChild(const std::vector<std::string>& argv, const std::string& workingDirectory,
                     std::chrono::seconds timeout) {
  ChildResult result;
  int pipeFds[2];
  if (argv.empty() || ::pipe2(pipeFds, O_CLOEXEC) != 0) return result;

  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);

  const pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(pipeFds[1], STDOUT_FILENO);
    ::dup2(pipeFds[1], STDERR_FILENO);
    if (!workingDirectory.empty() && ::chdir(workingDirectory.c_str()) != 0) ::_exit(126);
    ::execvp(args[0], args.data());
    ::_exit(127);
  }
  ::close(pipeFds[1]);
  if (pid < 0) {
    ::close(pipeFds[0]);
    return result;
  }

  const auto end = std::chrono::steady_clock::now() + timeout;
  char buffer[4096];
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      result.timedOut = true;
      ::kill(pid, SIGKILL);
      break;
    }
    pollfd p{pipeFds[0], POLLIN, 0};
    const int ready = ::poll(&p, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) continue;
    const ssize_t n = ::read(pipeFds[0], buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    result.output.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(pipeFds[0]);

  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) {
    result.exited = !result.timedOut;
    result.exitCode = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result.signal = WTERMSIG(status);
  }
  return result;
}

std::string selfExecutable() {
  char path[4096];
  const ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
  return n > 0 ? std::string(path, static_cast<std::size_t>(n)) : std::string();
}

}  // namespace test
}  // namespace zq
