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

std::vector<std::string> asUnprivileged(std::vector<std::string> argv) {
  if (::geteuid() != 0) return argv;
  argv.insert(argv.begin(), {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
  return argv;
}

namespace {

// Waits for the child and records how it ended.
template <class Result>
void reap(pid_t pid, Result& result) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) {
    result.exited = !result.timedOut;
    result.exitCode = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result.signal = WTERMSIG(status);
  }
}

}  // namespace

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

  reap(pid, result);
  return result;
}

ProgramResult runProgram(const std::vector<std::string>& argv, const ProgramRun& run) {
  ProgramResult result;
  int in[2], out[2], err[2];
  if (argv.empty() || ::pipe2(in, O_CLOEXEC) != 0) return result;
  if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) return result;

  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  std::vector<std::string> environment;
  for (char** e = environ; *e != nullptr; ++e) environment.emplace_back(*e);
  environment.insert(environment.end(), run.environment.begin(), run.environment.end());
  std::vector<char*> env;
  env.reserve(environment.size() + 1);
  for (std::string& e : environment) env.push_back(&e[0]);
  env.push_back(nullptr);

  const pid_t pid = ::fork();
  if (pid == 0) {
    ::setsid();
    ::dup2(in[0], STDIN_FILENO);
    ::dup2(out[1], STDOUT_FILENO);
    ::dup2(err[1], STDERR_FILENO);
    if (!run.workingDirectory.empty() && ::chdir(run.workingDirectory.c_str()) != 0) ::_exit(126);
    ::execvpe(args[0], args.data(), env.data());
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  ::close(err[1]);
  if (pid < 0) {
    for (int fd : {in[1], out[0], err[0]}) ::close(fd);
    return result;
  }
  ::fcntl(in[1], F_SETFL, O_NONBLOCK);
  ::signal(SIGPIPE, SIG_IGN);

  std::size_t written = 0;
  int inFd = in[1];
  if (run.input.empty()) {
    ::close(inFd);
    inFd = -1;
  }
  const auto end = std::chrono::steady_clock::now() + run.timeout;
  char buffer[65536];
  while (out[0] >= 0 || err[0] >= 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      result.timedOut = true;
      ::kill(pid, SIGKILL);
      break;
    }
    pollfd p[3] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}, {inFd, POLLOUT, 0}};
    if (::poll(p, 3, static_cast<int>(left.count())) <= 0) continue;
    for (int i = 0; i < 2; ++i) {
      if (p[i].revents == 0) continue;
      int& fd = i == 0 ? out[0] : err[0];
      const ssize_t n = ::read(fd, buffer, sizeof buffer);
      if (n > 0) {
        (i == 0 ? result.out : result.err).append(buffer, static_cast<std::size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        ::close(fd);
        fd = -1;
      }
    }
    if (p[2].revents != 0) {
      const ssize_t n = ::write(inFd, run.input.data() + written, run.input.size() - written);
      if (n > 0) written += static_cast<std::size_t>(n);
      if ((n < 0 && errno != EAGAIN && errno != EINTR) || written == run.input.size()) {
        ::close(inFd);
        inFd = -1;
      }
    }
  }
  for (int fd : {inFd, out[0], err[0]}) {
    if (fd >= 0) ::close(fd);
  }

  reap(pid, result);
  return result;
}

std::string selfExecutable() {
  char path[4096];
  const ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
  return n > 0 ? std::string(path, static_cast<std::size_t>(n)) : std::string();
}

}  // namespace test
}  // namespace zq
