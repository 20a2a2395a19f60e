// Captures what the log and the debugger stream write, for the duration of a scope.
#pragma once

#include <zq/foundation/Log.h>

#include <sstream>
#include <string>
#include <vector>

namespace zq {
namespace test {

// Puts one string stream into all five log slots and sets the threshold; restores the
// previous slots and threshold when it ends. Reading is safe while other threads log.
class LogCapture {
 public:
  explicit LogCapture(Log::ELevel threshold = Log::Debug);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::wstring text() const;
  // The lines written so far, narrowed, without their newline.
  std::vector<std::string> lines() const;
  // The lines that contain `needle`.
  std::vector<std::string> linesWith(const std::string& needle) const;
  // The part of each line after the 33-character prefix ("[function] body").
  std::vector<std::string> bodies() const;
  void clear();

 private:
  std::wostringstream m_stream;
  std::wostream* m_previous[5];
  Log::ELevel m_previousLevel;
};

// Collects the debugger sink's messages for the duration of a scope.
class DebuggerCapture {
 public:
  DebuggerCapture();
  ~DebuggerCapture();
  DebuggerCapture(const DebuggerCapture&) = delete;
  DebuggerCapture& operator=(const DebuggerCapture&) = delete;

  // Every message so far, in order, each as handed to the sink.
  std::vector<std::wstring> messages() const;

 private:
  Log::DebuggerSink m_previous;
};

}  // namespace test
}  // namespace zq
