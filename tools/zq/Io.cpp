#include "Io.h"

#include "Command.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <system_error>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace zqtool {

namespace {

std::string reason(const std::string& name) { return name + ": " + std::generic_category().message(errno); }

// What an interrupting signal must undo: pending files to remove, a terminal to echo again.
// Plain storage, as the handler may only call async-signal-safe functions.
constexpr int kMaxPending = 4;
char g_pending[kMaxPending][4096];
volatile std::sig_atomic_t g_ttyFd = -1;
termios g_ttySaved;

void onSignal(int signal) {
  for (auto& path : g_pending) {
    if (path[0] != '\0') ::unlink(path);
  }
  if (g_ttyFd >= 0) ::tcsetattr(g_ttyFd, TCSANOW, &g_ttySaved);
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

void catchSignals() {
  static const bool installed = [] {
    for (int s : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) std::signal(s, onSignal);
    return true;
  }();
  (void)installed;
}

char* pendingSlot(const std::string& path) {
  for (auto& slot : g_pending) {
    if (slot[0] == '\0' && path.size() < sizeof slot) return std::strcpy(slot, path.c_str());
  }
  return nullptr;
}

void releaseSlot(const std::string& path) {
  for (auto& slot : g_pending) {
    if (path == slot) slot[0] = '\0';
  }
}

// Reads one line from `fd` byte by byte, so that nothing behind it is consumed.
bool readLine(int fd, zq::crypto::secure_string& line) {
  line.clear();
  char c = 0;
  ssize_t n = 0;
  while ((n = ::read(fd, &c, 1)) == 1 || (n < 0 && errno == EINTR)) {
    if (n != 1) continue;
    if (c == '\n') return true;
    line += c;
  }
  zq::crypto::zeroOut(&c, 1);
  return !line.empty();
}

zq::crypto::secure_string askTerminal(int tty, const std::string& prompt) {
  // Echo goes off before the prompt shows, so that nothing typed after it is echoed; and
  // without flushing, so that nothing typed ahead is lost.
  termios quiet{};
  const bool canHide = ::tcgetattr(tty, &g_ttySaved) == 0;
  if (canHide) {
    quiet = g_ttySaved;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    g_ttyFd = tty;
    ::tcsetattr(tty, TCSANOW, &quiet);
  }
  const std::string text = prompt + ": ";
  zq::crypto::secure_string line;
  const bool read = ::write(tty, text.data(), text.size()) >= 0 && readLine(tty, line);
  if (canHide) {
    ::tcsetattr(tty, TCSANOW, &g_ttySaved);
    g_ttyFd = -1;
  }
  if (::write(tty, "\n", 1) < 0 || !read) throw Failure("no " + prompt + " given");
  return line;
}

}  // namespace

bool isTerminal(int fd) { return ::isatty(fd) == 1; }

std::string toHex(const char* data, std::size_t size) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  text.reserve(size * 2);
  for (std::size_t i = 0; i < size; ++i) {
    const auto byte = static_cast<unsigned char>(data[i]);
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

InputFile::InputFile(const std::string& name) : m_name(name) {
  if (name == "-") {
    m_file = stdin;
    return;
  }
  m_file = std::fopen(name.c_str(), "rb");
  if (m_file == nullptr) throw Failure(reason(name));
  struct stat info {};
  if (::fstat(::fileno(m_file), &info) == 0) {
    if (S_ISDIR(info.st_mode)) {
      std::fclose(m_file);
      throw Failure(name + ": is a folder");
    }
    if (S_ISREG(info.st_mode)) m_size = static_cast<std::uint64_t>(info.st_size);
  }
}

InputFile::~InputFile() {
  if (m_file != stdin) std::fclose(m_file);
}

std::size_t InputFile::read(char* buffer, std::size_t size) {
  const std::size_t n = std::fread(buffer, 1, size, m_file);
  if (n == 0 && std::ferror(m_file)) throw Failure(reason(m_name == "-" ? "standard input" : m_name));
  return n;
}

zq::crypto::secure_string readAll(const std::string& name) {
  InputFile in(name);
  zq::crypto::secure_string all;
  char buffer[65536];
  while (const std::size_t n = in.read(buffer, sizeof buffer)) all.append(buffer, n);
  zq::crypto::zeroOut(buffer, sizeof buffer);
  return all;
}

zq::crypto::secure_string readFirstLine(const std::string& path) {
  zq::crypto::secure_string all = readAll(path);
  const std::size_t end = all.find('\n');
  if (end != zq::crypto::secure_string::npos) all.resize(end);
  return all;
}

zq::crypto::secure_string readSecret(const std::string& what, bool confirm, bool stdinCarriesData) {
  if (!stdinCarriesData && !isTerminal(STDIN_FILENO)) {
    zq::crypto::secure_string line;
    readLine(STDIN_FILENO, line);
    return line;
  }
  const int tty = ::open("/dev/tty", O_RDWR | O_CLOEXEC);
  if (tty < 0) throw UsageError("no terminal to ask for the " + what + " (give it in a file)");
  catchSignals();
  try {
    zq::crypto::secure_string secret = askTerminal(tty, what);
    if (confirm && askTerminal(tty, what + " again") != secret) throw Failure("the two " + what + "s differ");
    ::close(tty);
    return secret;
  } catch (...) {
    ::close(tty);
    throw;
  }
}

std::uint64_t regularFileSize(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) throw Failure(reason(path));
  if (!S_ISREG(info.st_mode)) throw Failure(path + ": not a regular file");
  return static_cast<std::uint64_t>(info.st_size);
}

PendingFile::PendingFile(const std::string& target, unsigned mode, bool keepMode) : m_target(target) {
  const std::size_t slash = target.rfind('/');
  const std::string folder = slash == std::string::npos ? std::string() : target.substr(0, slash + 1);
  std::string name = folder + ".zq-XXXXXX";
  catchSignals();
  // Blocked while the name is made and recorded, so an interruption can't leave it behind.
  sigset_t all, old;
  sigfillset(&all);
  ::pthread_sigmask(SIG_BLOCK, &all, &old);
  const int fd = ::mkstemp(&name[0]);
  const int error = errno;
  if (fd >= 0 && pendingSlot(name) == nullptr) {
    ::close(fd);
    ::unlink(name.c_str());
    ::pthread_sigmask(SIG_SETMASK, &old, nullptr);
    throw Failure(target + ": path too long");
  }
  ::pthread_sigmask(SIG_SETMASK, &old, nullptr);
  errno = error;
  if (fd < 0) throw Failure("cannot write " + reason(target));
  struct stat existing {};
  ::fchmod(fd, keepMode && ::stat(target.c_str(), &existing) == 0 ? existing.st_mode & 07777 : mode);
  ::close(fd);
  m_path = name;
}

PendingFile::~PendingFile() {
  if (!m_committed) ::unlink(m_path.c_str());
  releaseSlot(m_path);
}

void PendingFile::write(const char* data, std::size_t size) {
  const int fd = ::open(m_path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  if (fd < 0) throw Failure("cannot write " + reason(m_target));
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      const int error = errno;
      ::close(fd);
      errno = error;
      throw Failure("cannot write " + reason(m_target));
    }
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  if (::fsync(fd) != 0 || ::close(fd) != 0) throw Failure("cannot write " + reason(m_target));
}

void PendingFile::commit(const std::function<void(const std::string& oldFile)>& wipeOld) {
  // Held open across the rename, the old file can still be reached after it has lost its name.
  const int old = wipeOld ? ::open(m_target.c_str(), O_RDONLY | O_CLOEXEC) : -1;
  const int synced = ::open(m_path.c_str(), O_RDONLY | O_CLOEXEC);
  if (synced >= 0) {
    ::fsync(synced);
    ::close(synced);
  }
  if (::rename(m_path.c_str(), m_target.c_str()) != 0) {
    const int error = errno;
    if (old >= 0) ::close(old);
    errno = error;
    throw Failure("cannot write " + reason(m_target));
  }
  m_committed = true;
  // A file that still has another name is still someone's content: it is left alone.
  struct stat left {};
  if (old >= 0 && ::fstat(old, &left) == 0 && left.st_nlink == 0) {
    try {
      wipeOld("/proc/self/fd/" + std::to_string(old));
    } catch (...) {
      ::close(old);
      throw;
    }
  }
  if (old >= 0) ::close(old);
}

}  // namespace zqtool
