// Files, standard input and the terminal as the tool's commands use them: whole reads that
// report by name, secrets read without echo, and new files that appear whole or not at all.
#pragma once

#include <zq/crypto/SecureString.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>

namespace zqtool {

bool isTerminal(int fd);

// Lower-case hex of bytes.
std::string toHex(const char* data, std::size_t size);

// A file opened for reading, or standard input for "-"; throws Failure "NAME: <reason>".
class InputFile {
 public:
  explicit InputFile(const std::string& name);
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  // Up to `size` bytes; 0 at the end. Throws Failure on a read error.
  std::size_t read(char* buffer, std::size_t size);
  // The size of a regular file; 0 for standard input, pipes and the like.
  std::uint64_t size() const { return m_size; }
  const std::string& name() const { return m_name; }

 private:
  std::string m_name;
  std::FILE* m_file;
  std::uint64_t m_size = 0;
};

// The whole content of a file ("-": standard input).
zq::crypto::secure_string readAll(const std::string& name);

// Where a secret comes from when no file gives it: standard input carries it as one line (its
// "\n" dropped) unless standard input is a terminal or carries the command's data; then the
// terminal is asked without echo, twice if `confirm`. Throws UsageError when there is no terminal
// to ask.
zq::crypto::secure_string readSecret(const std::string& what, bool confirm, bool stdinCarriesData);
// The first line of a file, its "\n" dropped: a pass phrase kept in a file.
zq::crypto::secure_string readFirstLine(const std::string& path);

// A new file that takes the place of `target` in one step when committed, and is removed if it
// never is (also when the tool is interrupted). It lies in the target's folder, so the rename
// never crosses a file system; it gets `mode`, or with `keepMode` that of the file it replaces.
class PendingFile {
 public:
  explicit PendingFile(const std::string& target, unsigned mode = 0600, bool keepMode = true);
  ~PendingFile();
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  const std::string& path() const { return m_path; }
  // Writes all of `data` into the pending file (for content made in memory).
  void write(const char* data, std::size_t size);
  // The pending file takes the target's name. `wipeOld`, if given, is called with a path to the
  // replaced file once it has lost its name, so that its content is neither lost before the
  // new one is in place nor left readable afterwards.
  void commit(const std::function<void(const std::string& oldFile)>& wipeOld = {});

 private:
  std::string m_target;
  std::string m_path;
  bool m_committed = false;
};

// The size of a regular file; throws Failure "NAME: <reason>" for anything else.
std::uint64_t regularFileSize(const std::string& path);

}  // namespace zqtool
