#include <zq/foundation/Log.h>

#include <zq/platform/Clock.h>
#include <zq/platform/DebugOutput.h>
#include <zq/platform/Files.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <fstream>
#include <iterator>
#include <locale>
#include <memory>
#include <new>
#include <string_view>

namespace zq {

const SEnumTexts Log::s_logLevels[5] = {{"DEBUG   ", "Debug"},
                                        {"LOG     ", "Log"},
                                        {"WARNING ", "Warning"},
                                        {"CRITICAL", "Critical"},
                                        {"!FATAL! ", "Fatal"}};

const SEnumTexts Log::s_modules[2] = {{"GNRL", "General"}, {"HTTP", "HTTP"}};

namespace {

// The longest prefix: a time stamp of up to 31 characters, the milliseconds (a sign is
// possible only before 1970), and the tag between two blanks.
constexpr std::size_t kPrefixCapacity = 31 + 7 + 1 + 8 + 1;

// Writes the prefix of a line at `out` and returns its length, normally 33.
std::size_t formatPrefix(Log::ELevel level, wchar_t* out) {
  static const wchar_t* const kFormat = L"%Y.%m.%d %H:%M:%S";
  static const std::wstring kTags[] = {wconvert(Log::s_logLevels[0].tag), wconvert(Log::s_logLevels[1].tag),
                                       wconvert(Log::s_logLevels[2].tag), wconvert(Log::s_logLevels[3].tag),
                                       wconvert(Log::s_logLevels[4].tag)};

  // Seconds and milliseconds come from one reading of the clock.
  const long long ticks = platform::wallTicks();
  const long long seconds = ticks / 10000000;
  long long ms = ticks / 10000 - seconds * 1000;

  // Lines come many to a second: each thread formats a second once and reuses the text.
  thread_local bool cached = false;
  thread_local long long cachedSeconds = 0;
  thread_local wchar_t stamp[32];
  thread_local std::size_t stampLength = 0;
  if (!cached || seconds != cachedSeconds) {
    std::tm local{};
    std::fill(std::begin(stamp), std::end(stamp), L'\0');
    if (platform::localTime(static_cast<std::time_t>(seconds), local)) std::wcsftime(stamp, 32, kFormat, &local);
    stamp[31] = L'\0';
    stampLength = std::wcslen(stamp);
    cachedSeconds = seconds;
    cached = true;
  }
  wchar_t* p = std::copy_n(stamp, stampLength, out);

  // Always three digits; a negative value (a clock before 1970) keeps its sign after them.
  *p++ = L'.';
  if (ms < 100) *p++ = L'0';
  if (ms < 10) *p++ = L'0';
  if (ms < 0) {
    *p++ = L'-';
    ms = -ms;
  }
  if (ms >= 100) *p++ = static_cast<wchar_t>(L'0' + ms / 100);
  if (ms >= 10) *p++ = static_cast<wchar_t>(L'0' + ms / 10 % 10);
  *p++ = static_cast<wchar_t>(L'0' + ms % 10);

  *p++ = L' ';
  const auto index = static_cast<std::size_t>(static_cast<unsigned>(level));
  const std::wstring& tag = kTags[index < std::size(kTags) ? index : 0];
  p = std::copy(tag.begin(), tag.end(), p);
  *p++ = L' ';
  return static_cast<std::size_t>(p - out);
}

// The conversion of a given locale, with a shortcut for text that is all ASCII when that
// locale is seen to pass ASCII through unchanged; anything else is the locale's own work, so
// the bytes and the failures are the same as without the shortcut.
class AsciiShortcut : public std::codecvt<wchar_t, char, std::mbstate_t> {
 public:
  typedef std::codecvt<wchar_t, char, std::mbstate_t> Base;

  explicit AsciiShortcut(const std::locale& locale)
      : m_locale(locale),
        m_base(std::use_facet<Base>(m_locale)),
        m_maxLength(m_base.max_length()),
        m_alwaysNoconv(m_base.always_noconv()),
        m_passesAscii(passesAscii(m_base)) {}

 protected:
  result do_out(state_type& state, const wchar_t* from, const wchar_t* fromEnd, const wchar_t*& fromNext, char* to,
                char* toEnd, char*& toNext) const override {
    const std::ptrdiff_t length = fromEnd - from;
    if (m_passesAscii && length <= toEnd - to && std::mbsinit(&state) != 0 && isAscii(from, fromEnd)) {
      std::transform(from, fromEnd, to, [](wchar_t c) { return static_cast<char>(c); });
      fromNext = fromEnd;
      toNext = to + length;
      return ok;
    }
    return m_base.out(state, from, fromEnd, fromNext, to, toEnd, toNext);
  }
  result do_unshift(state_type& state, char* to, char* toEnd, char*& toNext) const override {
    return m_base.unshift(state, to, toEnd, toNext);
  }
  result do_in(state_type& state, const char* from, const char* fromEnd, const char*& fromNext, wchar_t* to,
               wchar_t* toEnd, wchar_t*& toNext) const override {
    return m_base.in(state, from, fromEnd, fromNext, to, toEnd, toNext);
  }
  int do_encoding() const noexcept override { return m_base.encoding(); }
  bool do_always_noconv() const noexcept override { return m_alwaysNoconv; }
  int do_length(state_type& state, const char* from, const char* end, std::size_t max) const override {
    return m_base.length(state, from, end, max);
  }
  int do_max_length() const noexcept override { return m_maxLength; }

 private:
  static bool isAscii(const wchar_t* from, const wchar_t* end) {
    std::uint32_t bits = 0;
    for (; from != end; ++from) bits |= static_cast<std::uint32_t>(*from);
    return bits < 0x80;
  }

  // Whether all 128 ASCII characters, from the initial state, come out as the same bytes and
  // leave the state initial.
  static bool passesAscii(const Base& base) {
    wchar_t ascii[128];
    char expected[128];
    for (int c = 0; c < 128; ++c) {
      ascii[c] = static_cast<wchar_t>(c);
      expected[c] = static_cast<char>(c);
    }
    char out[128 * MB_LEN_MAX];
    std::mbstate_t state{};
    const wchar_t* fromNext = nullptr;
    char* toNext = nullptr;
    const result r = base.out(state, ascii, std::end(ascii), fromNext, out, std::end(out), toNext);
    return r == ok && fromNext == std::end(ascii) && toNext == out + 128 && std::equal(out, toNext, expected) &&
           std::mbsinit(&state) != 0;
  }

  const std::locale m_locale;  // keeps m_base alive
  const Base& m_base;
  const int m_maxLength;  // asked at every flush; constant for a facet
  const bool m_alwaysNoconv;
  const bool m_passesAscii;
};

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
  // A wide file stream with the global locale's conversion and no byte-order mark. A path
  // that can't be opened leaves a stream in the failed state, which swallows every write.
  const std::ios_base::openmode mode = std::ios_base::out | (truncate ? std::ios_base::trunc : std::ios_base::app);
  auto* file = new std::wofstream;
  // The same conversion, made quicker for plain ASCII lines; only the buffer has it, the
  // stream's own locale stays the global one.
  const std::locale global = file->rdbuf()->getloc();
  file->rdbuf()->pubimbue(std::locale(global, new AsciiShortcut(global)));
  file->open(platform::nativePath(path), mode);
  return file;
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
  wchar_t prefix[kPrefixCapacity];
  o_prefix.append(prefix, formatPrefix(level, prefix));
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
  // The start of the line is built before the lock, so the mutex is held briefly, and on the
  // stack unless the function's name is very long.
  if (function == nullptr) static_cast<void>(tconvert(function));  // fails as the conversion does
  const std::size_t nameLength = function != nullptr ? std::strlen(function) : 0;
  const std::size_t capacity = kPrefixCapacity + nameLength + 3;
  wchar_t local[256];
  std::unique_ptr<wchar_t[]> heap(capacity > std::size(local) ? new wchar_t[capacity] : nullptr);
  wchar_t* const start = heap ? heap.get() : local;
  wchar_t* p = start + formatPrefix(level, start);
  *p++ = L'[';
  if (nameLength != 0) {
    const std::locale global;  // widened as tconvert does
    std::use_facet<std::ctype<wchar_t>>(global).widen(function, function + nameLength, p);
    p += nameLength;
  }
  *p++ = L']';
  *p++ = L' ';
  m_lock = std::unique_lock<std::mutex>(log.mutex());
  // Taken again under the mutex: setLogFile or closeLogFile may have deleted the stream the
  // statement saw.
  m_stream = log.getStream(level);
  if (m_stream == nullptr) return;
  m_flags = m_stream->flags();
  *m_stream << std::wstring_view(start, static_cast<std::size_t>(p - start));
}

LogLine::~LogLine() {
  if (m_stream == nullptr) return;
  *m_stream << std::endl;
  m_stream->flags(m_flags);
}

}  // namespace internal
}  // namespace zq
