#include "Progress.h"

#include "Io.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace zqtool {

namespace {

std::string bytes(double n) {
  const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  int unit = 0;
  while (n >= 1024 && unit < 4) {
    n /= 1024;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", n, units[unit]);
  return text;
}

std::string duration(double seconds) {
  const long s = std::lround(seconds);
  char text[32];
  if (s >= 3600) {
    std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
  } else {
    std::snprintf(text, sizeof text, "%ld:%02ld", s / 60, s % 60);
  }
  return text;
}

}  // namespace

void addProgressOptions(CLI::App& command, ProgressMode& mode) {
  CLI::Option* on = command.add_flag_callback(
      "--progress", [&mode] { mode = ProgressMode::On; }, "show a progress bar on standard error, whatever the size");
  CLI::Option* off = command.add_flag_callback(
      "--no-progress", [&mode] { mode = ProgressMode::Off; }, "never show the progress bar");
  on->excludes(off);
}

Progress::Progress(ProgressMode mode, std::uint64_t total)
    : m_shown(mode == ProgressMode::On ||
              (mode == ProgressMode::Auto && total > kThreshold && isTerminal(STDERR_FILENO))),
      m_total(total),
      m_start(std::chrono::steady_clock::now()),
      m_lastDraw(m_start) {}

Progress::~Progress() {
  if (!m_shown) return;
  update(m_total, true);
  std::fprintf(stderr, "\r%*s\r", static_cast<int>(m_width), "");
  std::fflush(stderr);
}

void Progress::update(std::uint64_t done, bool force) {
  if (!m_shown) return;
  const auto now = std::chrono::steady_clock::now();
  if (!force && now - m_lastDraw < std::chrono::milliseconds(100)) return;
  m_lastDraw = now;
  const double seconds = std::chrono::duration<double>(now - m_start).count();
  const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
  const int percent = m_total > 0 ? static_cast<int>(done * 100 / m_total) : 100;
  const int filled = percent * 30 / 100;
  std::string line = "[" + std::string(static_cast<std::size_t>(filled), '#') +
                     std::string(static_cast<std::size_t>(30 - filled), ' ') + "] " + std::to_string(percent) + "%  " +
                     bytes(static_cast<double>(done)) + " of " + bytes(static_cast<double>(m_total)) + "  " +
                     bytes(rate) + "/s";
  if (rate > 0 && done < m_total) line += "  " + duration(static_cast<double>(m_total - done) / rate) + " left";
  const std::size_t width = line.size();
  if (width < m_width) line.append(m_width - width, ' ');
  m_width = std::max(m_width, width);
  std::fprintf(stderr, "\r%s", line.c_str());
  std::fflush(stderr);
}

FileWatch::FileWatch(Progress& progress, std::string path) : m_progress(progress), m_path(std::move(path)) {
  if (!m_progress.shown()) return;
  m_thread = std::thread([this] {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_wake.wait_for(lock, std::chrono::milliseconds(100), [this] { return m_stop; })) {
      struct stat info {};
      if (::stat(m_path.c_str(), &info) == 0) m_progress.update(static_cast<std::uint64_t>(info.st_size));
    }
  });
}

FileWatch::~FileWatch() {
  if (!m_thread.joinable()) return;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stop = true;
  }
  m_wake.notify_one();
  m_thread.join();
}

}  // namespace zqtool
