#include <zq/foundation/Log.h>

#include <zq/platform/Clock.h>
#include <zq/platform/DebugOutput.h>
#include <zq/platform/Files.h>

#include <algorithm>
#include <cwchar>
#include <fstream>
#include <iterator>
#include <new>

namespace zq {

const SEnumTexts Log::s_logLevels[5] = {{"DEBUG   ", "Debug"},
                                        {"LOG     ", "Log"},
                                        {"WARNING ", "Warning"},
                                        {"CRITICAL", "Critical"},
                                        {"!FATAL! ", "Fatal"}};

const SEnumTexts Log::s_modules[2] = {{"GNRL", "General"}, {"HTTP", "HTTP"}};

namespace {

// The instance is built in place and never destroyed: the call thread and the run loop are
// detached and may still log while the process runs its exit hooks.
alignas(Log) unsigned char g_instanceStorage[sizeof(Log)];

}  // namespace

Log& Log::s_instance = *new (g_instanceStorage) Log();

Log::Log() : m_streams{}, m_owned{}, m_logFile(nullptr), m_level(Debug) {}

void Log::replaceSlot(std::size_t index, std::wostream* stream, bool owned) {
  std::wostream* const old = m_streams[index].exchange(stream, std::memory_order_acq_rel);
  if (m_owned[index] && old) delete old;
  m_owned[index] = owned;
}

void Log::setStream(ELevel level, std::wostream* stream, bool owned) {
  const auto index = static_cast<std::size_t>(static_cast<unsigned>(level));
  if (index >= kSlots) return;
  replaceSlot(index, stream, owned);
}

std::wostream* Log::openFile(const std::wstring& path, bool truncate) {
  // A plain wide file stream: no locale imbued, no byte-order mark. A path that can't be
  // opened leaves a stream in the failed state, which swallows every write.
  const std::ios_base::openmode mode = std::ios_base::out | (truncate ? std::ios_base::trunc : std::ios_base::app);
  return new std::wofstream(platform::nativePath(path), mode);
}

void Log::setLogFile(const std::wstring& path, bool truncate) {
  ZQ_LOG_ON(*this, Message, "zq::Log::setLogFile", "Redirecting log to: \"" << path << "\"");
  std::lock_guard<std::mutex> lock(m_mutex);
  delete m_logFile;
  m_logFile = openFile(path, truncate);
  // The shared file is owned through m_logFile alone, never through the slots' marks.
  for (std::size_t i = 0; i < kSlots; ++i) replaceSlot(i, m_logFile, false);
}

void Log::setLogFile(ELevel level, const std::wstring& path, bool truncate) {
  std::lock_guard<std::mutex> lock(m_mutex);
  std::wostream* file = openFile(path, truncate);
  const auto index = static_cast<std::size_t>(static_cast<unsigned>(level));
  if (index < kSlots) {
    replaceSlot(index, file, true);
  } else {
    delete file;
  }
}

void Log::closeLogFile() {
  std::lock_guard<std::mutex> lock(m_mutex);
  for (std::size_t i = 0; i < kSlots; ++i) replaceSlot(i, nullptr, false);
  delete m_logFile;
  m_logFile = nullptr;
}

const std::wstring& Log::pre(ELevel level, std::wstring& o_prefix) {
  static const wchar_t* const kFormat = L"%Y.%m.%d %H:%M:%S";
  static const std::wstring kTags[kSlots] = {wconvert(s_logLevels[0].tag), wconvert(s_logLevels[1].tag),
                                             wconvert(s_logLevels[2].tag), wconvert(s_logLevels[3].tag),
                                             wconvert(s_logLevels[4].tag)};

  // Seconds and milliseconds come from one reading of the clock.
  const long long ticks = platform::wallTicks();
  const long long seconds = ticks / 10000000;
  const long long ms = ticks / 10000 - seconds * 1000;

  // Lines come many to a second: each thread formats a second once and reuses the text.
  thread_local long long cachedSeconds = -1;
  thread_local wchar_t stamp[32];
  if (seconds != cachedSeconds) {
    std::tm local{};
    std::fill(std::begin(stamp), std::end(stamp), L'\0');
    if (platform::localTime(static_cast<std::time_t>(seconds), local)) std::wcsftime(stamp, 32, kFormat, &local);
    cachedSeconds = seconds;
  }
  o_prefix += stamp;
  o_prefix += ms < 10 ? L".00" : ms < 100 ? L".0" : L".";
  o_prefix += std::to_wstring(ms);
  o_prefix += L' ';
  const auto index = static_cast<std::size_t>(static_cast<unsigned>(level));
  o_prefix += kTags[index < kSlots ? index : 0];
  o_prefix += L' ';
  return o_prefix;
}

std::wostream& Log::pre(ELevel level) {
  std::wstring prefix;
  std::wostream& stream = *getStream(level);
  return stream << pre(level, prefix);
}

std::wostream& Log::debugger() {
  static basic_dostream<wchar_t> stream;
  return stream;
}

template <>
int basic_debugbuf<wchar_t>::sync() {
  platform::outputDebugString(this->str().c_str());
  this->str(std::wstring());
  return 0;
}

Log::DebuggerSink Log::setDebuggerSink(DebuggerSink sink) { return platform::setDebugSink(sink); }

void Log::redirectStdOut(const std::wstring& path, bool append, bool buffered) {
  platform::reopenStdStream(stdout, path, append, buffered);
}

void Log::redirectStdErr(const std::wstring& path, bool append, bool buffered) {
  platform::reopenStdStream(stderr, path, append, buffered);
}

void Log::setStdOut(const std::wstring& path, bool append, bool buffered) {
  redirectStdOut(path, append, buffered);
  redirectStdErr(path, append, buffered);
}

namespace internal {

LogLine::LogLine(Log& log, Log::ELevel level, const char* function) : m_stream(nullptr) {
  // Everything but the write happens before the lock, so the mutex is held briefly.
  std::wstring prefix;
  prefix.reserve(96);
  log.pre(level, prefix);
  prefix += L'[';
  prefix += tconvert(function);
  prefix += L"] ";
  m_lock = std::unique_lock<std::mutex>(log.mutex());
  // Taken again under the mutex: setLogFile or closeLogFile may have deleted the stream the
  // statement saw.
  m_stream = log.getStream(level);
  if (m_stream == nullptr) return;
  m_flags = m_stream->flags();
  *m_stream << prefix;
}

LogLine::~LogLine() {
  if (m_stream == nullptr) return;
  *m_stream << std::endl;
  m_stream->flags(m_flags);
}

}  // namespace internal
}  // namespace zq
