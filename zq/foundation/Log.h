// The process-wide log: five levels, one stream slot per level, one threshold, one mutex.
//
// The library never opens a log by itself; until the application sets a stream or a file,
// every statement is silent. A statement writes and flushes one line on the calling thread:
//   2016.03.09 14:05:07.042 WARNING [zq::Class::function] body
// Log statements may come from any thread, also while setLogFile or closeLogFile runs: a
// statement takes its stream again under the log's mutex, so it never writes to a stream
// those have deleted. setStream takes no lock: replacing an owned stream is for moments when
// no other thread logs.
#pragma once

#include <zq/Export.h>
#include <zq/foundation/Text.h>

#include <array>
#include <atomic>
#include <ios>
#include <mutex>
#include <ostream>
#include <sstream>
#include <string>

namespace zq {

// A short and a long text for an enumerator.
struct SEnumTexts {
  const char* tag;
  const char* name;
};

class ZQ_API Log {
 public:
  // Severity, growing; statements below the threshold are dropped unevaluated.
  enum ELevel { Debug = 0, Message = 1, Warning = 2, Critical = 3, Fatal = 4 };

  // Indexed by ELevel: the 8-character tag of a line and the level's name.
  static const SEnumTexts s_logLevels[5];
  // Module names for clients; the library does not read them.
  static const SEnumTexts s_modules[2];

  // The one instance. It lives for the whole process, so threads the library leaves running
  // at exit can still log safely.
  static Log& instance() { return s_instance; }

  Log();
  // Frees nothing: files and owned streams are closeLogFile's to close, and a trivial end lets
  // threads that outlive the exit hooks still find a usable log.
  ~Log() = default;

  std::mutex& mutex() { return m_mutex; }

  ELevel logLevel() const { return m_level.load(std::memory_order_relaxed); }
  void setLogLevel(ELevel level) { m_level.store(level, std::memory_order_relaxed); }
  void setDebugLogLevel() { setLogLevel(Debug); }
  void setMessageLogLevel() { setLogLevel(Message); }
  void setWarningLogLevel() { setLogLevel(Warning); }
  void setImportantLogLevel() { setLogLevel(Warning); }
  void setErrorLogLevel() { setLogLevel(Critical); }
  void setFatalErrorLogLevel() { setLogLevel(Fatal); }

  // The slot of `level`, or of level 0 when `level` is out of range; may be null. No lock.
  std::wostream* getStream(ELevel level) const {
    const auto index = static_cast<std::size_t>(static_cast<unsigned>(level));
    return m_streams[index < kSlots ? index : 0].load(std::memory_order_acquire);
  }
  // Replaces the slot's stream (deleting the old one if this log owned it); `owned` makes the
  // log delete `stream` when it is replaced or closed. Out-of-range levels do nothing. No lock.
  void setStream(ELevel level, std::wostream* stream, bool owned);

  // Sends every level to one file: `truncate` true starts it afresh, false appends. The old
  // log announces the new one first. An unopenable path gives a silent log, no error.
  void setLogFile(const std::wstring& path, bool truncate);
  // Sends one level to a file of its own; the other levels keep their streams.
  void setLogFile(ELevel level, const std::wstring& path, bool truncate);
  static void setDefaultLogFile(const std::wstring& path, bool truncate) { instance().setLogFile(path, truncate); }
  // Deletes every owned stream and the shared file, and empties all slots. Safe to repeat.
  void closeLogFile();

  // Writes the 33-character prefix "YYYY.MM.DD hh:mm:ss.mmm TAG      " to the level's stream,
  // which must exist, and returns that stream. No lock, no threshold.
  std::wostream& pre(ELevel level);
  // Appends the prefix to o_prefix and returns it.
  const std::wstring& pre(ELevel level, std::wstring& o_prefix);

  // A stream that ends in the debugger sink: each flush hands the collected text over as
  // one message. Not a slot; no level or mutex applies.
  static std::wostream& debugger();
  // Where debugger messages go; the default writes them as UTF-8 to standard error. Pass
  // null to restore the default. Returns the previous sink.
  typedef void (*DebuggerSink)(const wchar_t* message);
  static DebuggerSink setDebuggerSink(DebuggerSink sink);

  // Reopen standard output or error on `path` ("a+" when appending, "w+" otherwise), and
  // unbuffered unless `buffered`. When the file can't be opened the stream stays as it was.
  static void redirectStdOut(const std::wstring& path, bool append, bool buffered);
  static void redirectStdErr(const std::wstring& path, bool append, bool buffered);
  static void setStdOut(const std::wstring& path, bool append, bool buffered);

 private:
  Log(const Log&);
  Log& operator=(const Log&);

  std::wostream* openFile(const std::wstring& path, bool truncate);
  void replaceSlot(std::size_t index, std::wostream* stream, bool owned);

  static constexpr std::size_t kSlots = 5;

  std::mutex m_mutex;
  // Read without the mutex by statements deciding whether to write, and again under it; a
  // stream set on one thread is seen whole by a statement on another.
  std::array<std::atomic<std::wostream*>, kSlots> m_streams;
  std::array<bool, kSlots> m_owned;
  std::wostream* m_logFile;
  std::atomic<ELevel> m_level;

  static Log& s_instance;
};

// A string buffer whose sync() hands the collected text to the debugger sink and empties it.
template <class C>
class basic_debugbuf : public std::basic_stringbuf<C> {
 public:
  ~basic_debugbuf() override { sync(); }

 protected:
  int sync() override;
};

template <>
ZQ_API int basic_debugbuf<wchar_t>::sync();

// An output stream over a basic_debugbuf.
template <class C>
class basic_dostream : public std::basic_ostream<C> {
 public:
  basic_dostream() : std::basic_ostream<C>(nullptr) { this->init(&m_buf); }

 private:
  basic_debugbuf<C> m_buf;
};

namespace internal {

// One log line under construction: the constructor builds the prefix, takes the log's
// mutex, takes the level's stream and writes the prefix; the destructor ends the line,
// flushes, restores the stream's flags and unlocks. A slot emptied meanwhile drops the line.
// Used through ZQ_LOG only.
class ZQ_API LogLine {
 public:
  LogLine(Log& log, Log::ELevel level, const char* function);
  ~LogLine();

  template <class T>
  LogLine& operator<<(const T& item) {
    if (m_stream) *m_stream << item;  // zq's mixed-width operators are visible here: narrow strings widen
    return *this;
  }
  LogLine& operator<<(std::wostream& (*manipulator)(std::wostream&)) {
    if (m_stream) manipulator(*m_stream);
    return *this;
  }
  LogLine& operator<<(std::ios_base& (*manipulator)(std::ios_base&)) {
    if (m_stream) manipulator(*m_stream);
    return *this;
  }

 private:
  LogLine(const LogLine&);
  LogLine& operator=(const LogLine&);

  std::wostream* m_stream;
  std::unique_lock<std::mutex> m_lock;
  std::ios_base::fmtflags m_flags;
};

}  // namespace internal
}  // namespace zq

// ZQ_LOG(level, "zq::Class::function", a << b << ...): one line if the level's slot holds a
// stream and the level is at or above the threshold. Otherwise the body is not evaluated.
// The body must not log itself: the log's mutex is held while it is written.
#define ZQ_LOG_ON(log, level, function, ...)                                                                       \
  do {                                                                                                             \
    ::zq::Log& zq_log_ = (log);                                                                                    \
    const ::zq::Log::ELevel zq_level_ = static_cast<::zq::Log::ELevel>(level);                                     \
    if (zq_log_.getStream(zq_level_) != nullptr)                                                                   \
      if (zq_log_.logLevel() <= zq_level_) ::zq::internal::LogLine(zq_log_, zq_level_, (function)) << __VA_ARGS__; \
  } while (false)

#define ZQ_LOG(level, function, ...) ZQ_LOG_ON(::zq::Log::instance(), level, function, __VA_ARGS__)
