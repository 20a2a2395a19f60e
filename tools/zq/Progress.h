// The progress bar of long file work: bytes done, the rate and the time left, on standard error.
// By default it shows only for work above 16 MiB and only on a terminal, so nothing of it reaches
// a pipe or a file; --progress and --no-progress force it either way.
#pragma once

#include <CLI/CLI.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace zqtool {

enum class ProgressMode { Auto, On, Off };

// Adds --progress and --no-progress to a command that works on files.
void addProgressOptions(CLI::App& command, ProgressMode& mode);

// One bar for one piece of work of `total` bytes. update() may be called from one thread at a
// time; the bar is redrawn at most ten times a second and cleared at the end.
class Progress {
 public:
  Progress(ProgressMode mode, std::uint64_t total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  bool shown() const { return m_shown; }
  void update(std::uint64_t done, bool force = false);

  static constexpr std::uint64_t kThreshold = 16u << 20;

 private:
  bool m_shown;
  std::uint64_t m_total;
  std::chrono::steady_clock::time_point m_start;
  std::chrono::steady_clock::time_point m_lastDraw;
  std::size_t m_width = 0;
};

// Follows a file that a library call writes, by its size, on a thread of its own, until it is
// destroyed. Does nothing when the bar is not shown.
class FileWatch {
 public:
  FileWatch(Progress& progress, std::string path);
  ~FileWatch();
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

 private:
  Progress& m_progress;
  std::string m_path;
  std::mutex m_mutex;
  std::condition_variable m_wake;
  bool m_stop = false;
  std::thread m_thread;
};

}  // namespace zqtool
