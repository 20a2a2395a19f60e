#include <zq/foundation/Log.h>

#include "tests/support/LogCapture.h"
#include "tests/support/Wait.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <locale>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include <unistd.h>

namespace zq {
namespace {

std::string readFile(const std::string& path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A stream that tells when it is deleted.
struct TrackedStream : std::wostringstream {
  explicit TrackedStream(bool* deleted) : m_deleted(deleted) {}
  ~TrackedStream() override { *m_deleted = true; }
  bool* m_deleted;
};

class LogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/zq-log-test-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(pattern));
    m_dir = pattern;
  }
  void TearDown() override {
    m_log.closeLogFile();
    std::system(("rm -rf " + m_dir).c_str());
  }
  std::string path(const std::string& name) const { return m_dir + "/" + name; }
  std::wstring wpath(const std::string& name) const { return wconvert(path(name)); }

  Log m_log;  // a private instance; ZQ_LOG_ON writes through it exactly as ZQ_LOG does through the global one
  std::string m_dir;
};

TEST_F(LogTest, SilentWithoutStreamsAndFilteredBodyNotEvaluated) {
  int evaluated = 0;
  ZQ_LOG_ON(m_log, Log::Fatal, "zq::LogTest", "no stream " << ++evaluated);
  std::wostringstream out;
  m_log.setStream(Log::Warning, &out, false);
  m_log.setLogLevel(Log::Critical);
  ZQ_LOG_ON(m_log, Log::Warning, "zq::LogTest", "filtered " << ++evaluated);
  EXPECT_TRUE(evaluated == 0 && out.str().empty());
}

TEST_F(LogTest, ThresholdAndSlotsDecideWhatIsWritten) {
  std::wostringstream out;
  for (int level = 0; level < 5; ++level) m_log.setStream(static_cast<Log::ELevel>(level), &out, false);
  EXPECT_EQ(Log::Debug, m_log.logLevel());

  const struct {
    void (Log::*setter)();
    Log::ELevel level;
  } setters[] = {{&Log::setDebugLogLevel, Log::Debug},     {&Log::setMessageLogLevel, Log::Message},
                 {&Log::setWarningLogLevel, Log::Warning}, {&Log::setImportantLogLevel, Log::Warning},
                 {&Log::setErrorLogLevel, Log::Critical},  {&Log::setFatalErrorLogLevel, Log::Fatal}};
  for (const auto& s : setters) {
    (m_log.*s.setter)();
    for (int level = 0; level < 5; ++level) {
      out.str(L"");
      ZQ_LOG_ON(m_log, level, "zq::LogTest", "x");
      EXPECT_EQ(level >= s.level, !out.str().empty()) << "threshold " << s.level << ", level " << level;
    }
  }

  // Out-of-range levels: getStream falls back to slot 0, setStream does nothing.
  std::wostringstream zero;
  m_log.setStream(Log::Debug, &zero, false);
  m_log.setStream(static_cast<Log::ELevel>(5), &out, true);
  m_log.setStream(static_cast<Log::ELevel>(-1), &out, true);
  EXPECT_EQ(&zero, m_log.getStream(static_cast<Log::ELevel>(7)));
}

TEST_F(LogTest, LineShapeAndPrefix) {
  std::wostringstream out;
  m_log.setStream(Log::Warning, &out, false);
  const std::string narrow = "narrow";
  ZQ_LOG_ON(m_log, Log::Warning, "zq::Log::setLogFile", "value " << std::hex << 255 << ' ' << narrow << L" wide");
  ZQ_LOG_ON(m_log, Log::Warning, "zq::Log::setLogFile", "after " << 255);
  const std::string text = convert(out.str());
  const std::regex line(
      R"(\d{4}\.\d{2}\.\d{2} \d{2}:\d{2}:\d{2}\.\d{3} WARNING  \[zq::Log::setLogFile\] value ff narrow wide
\d{4}\.\d{2}\.\d{2} \d{2}:\d{2}:\d{2}\.\d{3} WARNING  \[zq::Log::setLogFile\] after 255
)");
  EXPECT_TRUE(std::regex_match(text, line)) << text;

  const char* const tags[] = {"DEBUG   ", "LOG     ", "WARNING ", "CRITICAL", "!FATAL! ", "DEBUG   ", "DEBUG   "};
  for (int level = 0; level < 7; ++level) {
    std::wstring prefix = L">";
    m_log.pre(static_cast<Log::ELevel>(level), prefix);
    ASSERT_EQ(34u, prefix.size()) << "33 characters appended";
    EXPECT_EQ(tags[level] + std::string(" "), convert(prefix.substr(25)));
  }

  std::wostringstream direct;
  m_log.setStream(Log::Fatal, &direct, false);
  EXPECT_EQ(&direct, &m_log.pre(Log::Fatal));
  EXPECT_EQ(33u, direct.str().size());
}

TEST_F(LogTest, MillisecondsAlwaysHaveThreeDigitsAndMatchTheClock) {
  // Read until values below 10, below 100 and above have been seen, each against the clock.
  bool seen[3] = {false, false, false};
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!(seen[0] && seen[1] && seen[2]) && std::chrono::steady_clock::now() < deadline) {
    const auto before = std::chrono::system_clock::now();
    std::wstring prefix;
    m_log.pre(Log::Debug, prefix);
    const auto after = std::chrono::system_clock::now();
    ASSERT_EQ(std::wstring::npos, prefix.substr(20, 3).find_first_not_of(L"0123456789")) << prefix;
    const int ms = std::stoi(prefix.substr(20, 3));
    const auto msOf = [](std::chrono::system_clock::time_point t) {
      return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(t.time_since_epoch()).count() %
                              1000);
    };
    const int lo = msOf(before), hi = msOf(after);
    EXPECT_TRUE(lo <= hi ? (ms >= lo && ms <= hi) : (ms >= lo || ms <= hi)) << ms << " not in " << lo << ".." << hi;
    seen[ms < 10 ? 0 : ms < 100 ? 1 : 2] = true;
    std::this_thread::sleep_for(std::chrono::microseconds(700));
  }
  EXPECT_TRUE(seen[0] && seen[1] && seen[2]);
}

// The stamp of every prefix lies between two readings of the clock taken around it, also
// when a second rolls over between two lines of the same thread.
TEST_F(LogTest, TimeStampFollowsTheClockAcrossSeconds) {
  const auto stampOf = [](std::chrono::system_clock::time_point t) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(t);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y.%m.%d %H:%M:%S", &local);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(t.time_since_epoch()).count() % 1000;
    char millis[8];
    std::snprintf(millis, sizeof millis, ".%03d", static_cast<int>(ms));
    return std::string(text, length) + millis;
  };
  std::set<std::string> secondsSeen;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (secondsSeen.size() < 3 && std::chrono::steady_clock::now() < deadline) {
    const auto before = std::chrono::system_clock::now();
    std::wstring prefix;
    m_log.pre(Log::Critical, prefix);
    const auto after = std::chrono::system_clock::now();
    const std::string stamp = convert(prefix.substr(0, 23));
    ASSERT_LE(stampOf(before), stamp);
    ASSERT_GE(stampOf(after), stamp);
    EXPECT_EQ(L" CRITICAL ", prefix.substr(23));
    secondsSeen.insert(stamp.substr(0, 19));
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
  }
  EXPECT_EQ(3u, secondsSeen.size());
}

TEST_F(LogTest, FunctionNamesOfAnyLengthAreWrittenWhole) {
  std::wostringstream out;
  m_log.setStream(Log::Message, &out, false);
  for (const std::string& name : {std::string(), std::string("a::b"), std::string(240, 'f'), std::string(5000, 'g')}) {
    out.str(L"");
    ZQ_LOG_ON(m_log, Log::Message, name.c_str(), "body");
    const std::string line = convert(out.str());
    ASSERT_EQ(33u + name.size() + 8, line.size()) << name.size();
    EXPECT_EQ("[" + name + "] body\n", line.substr(33)) << name.size();
  }
}

// The log's file converts exactly as a plain wide file stream opened at the same moment:
// under the C locale a character beyond ASCII fails the stream and silences it; under a
// global UTF-8 locale it is encoded.
TEST_F(LogTest, LogFileBytesAreThoseOfAPlainWideFileStream) {
  const std::vector<std::wstring> bodies = {L"plain", std::wstring(L"nul\0inside", 10), std::wstring(10000, L'x'),
                                            L"caf\u00E9", L"after"};
  struct Case {
    const char* locale;
    const char* encoded;  // how the fourth body must come out, or null when the stream fails
  } cases[] = {{"C", nullptr}, {"C.UTF-8", "caf\xC3\xA9"}};
  const std::locale original;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.locale);
    std::locale locale;
    try {
      locale = std::locale(c.locale);
    } catch (const std::runtime_error&) {
      continue;  // not installed here
    }
    std::locale::global(locale);
    m_log.setLogFile(wpath("log.txt"), true);
    {
      std::wofstream reference(path("reference.txt"));  // closed by its destructor, which swallows a failed flush
      for (const std::wstring& body : bodies) {
        ZQ_LOG_ON(m_log, Log::Message, "zq::LogTest", body);
        reference << L"[zq::LogTest] " << body << std::endl;
      }
    }
    const bool failed = m_log.getStream(Log::Message)->fail();
    m_log.closeLogFile();
    std::locale::global(original);
    EXPECT_EQ(c.encoded == nullptr, failed);

    // The file without its prefixes is the reference byte for byte.
    std::istringstream written(readFile(path("log.txt")));
    std::string withoutPrefixes;
    for (std::string line; std::getline(written, line);) withoutPrefixes += line.substr(33) + "\n";
    const std::string expected = readFile(path("reference.txt"));
    EXPECT_EQ(expected, withoutPrefixes);
    EXPECT_EQ(0u, expected.find("[zq::LogTest] plain\n[zq::LogTest] nul" + std::string(1, '\0') + "inside\n"));
    EXPECT_EQ(c.encoded != nullptr, expected.find(c.encoded != nullptr ? c.encoded : "after") != std::string::npos);
  }
}

TEST_F(LogTest, LogFileTruncatesOrAppendsAndAnnouncesItsSuccessor) {
  { std::ofstream(path("a.log")) << "old content\n"; }
  m_log.setLogFile(wpath("a.log"), false);
  ZQ_LOG_ON(m_log, Log::Message, "zq::LogTest", "first");
  EXPECT_EQ(0u, readFile(path("a.log")).find("old content\n")) << "appending keeps what was there";

  m_log.setLogFile(wpath("b.log"), true);
  ZQ_LOG_ON(m_log, Log::Critical, "zq::LogTest", "second");
  EXPECT_THAT(readFile(path("a.log")),
              testing::EndsWith("LOG      [zq::Log::setLogFile] Redirecting log to: \"" + path("b.log") + "\"\n"));
  EXPECT_NE(std::string::npos, readFile(path("b.log")).find("[zq::LogTest] second"));

  m_log.setLogFile(wpath("a.log"), true);
  EXPECT_EQ(std::string::npos, readFile(path("a.log")).find("old content")) << "truncate starts afresh";

  // No announcement once the threshold is above Message.
  m_log.setErrorLogLevel();
  m_log.setLogFile(wpath("c.log"), true);
  EXPECT_EQ(std::string::npos, readFile(path("a.log")).find("c.log"));
}

TEST_F(LogTest, PerLevelFileAndCloseLogFile) {
  m_log.setLogFile(wpath("all.log"), false);
  m_log.setLogFile(Log::Message, wpath("messages.log"), false);
  for (int level = 0; level < 5; ++level) ZQ_LOG_ON(m_log, level, "zq::LogTest", "level " << level);
  const std::string all = readFile(path("all.log"));
  const std::string messages = readFile(path("messages.log"));
  for (int level = 0; level < 5; ++level) {
    const std::string body = "[zq::LogTest] level " + std::to_string(level);
    EXPECT_EQ(level == 1, messages.find(body) != std::string::npos) << level;
    EXPECT_EQ(level != 1, all.find(body) != std::string::npos) << level;
  }
  m_log.closeLogFile();
  for (int level = 0; level < 5; ++level) EXPECT_EQ(nullptr, m_log.getStream(static_cast<Log::ELevel>(level)));
  m_log.closeLogFile();  // twice is fine
}

TEST_F(LogTest, OwnershipDecidesWhatIsDeleted) {
  bool borrowedDeleted = false, ownedDeleted = false, replacedDeleted = false;
  TrackedStream borrowed(&borrowedDeleted);
  m_log.setStream(Log::Warning, &borrowed, false);
  m_log.setStream(Log::Critical, new TrackedStream(&ownedDeleted), true);
  m_log.setStream(Log::Fatal, new TrackedStream(&replacedDeleted), true);
  m_log.setStream(Log::Fatal, nullptr, false);
  EXPECT_TRUE(replacedDeleted) << "an owned stream is deleted when replaced";
  m_log.closeLogFile();
  EXPECT_FALSE(borrowedDeleted);
  EXPECT_TRUE(ownedDeleted);

  // The shared file is owned once, not per slot: replacing one slot must not delete it.
  m_log.setLogFile(wpath("shared.log"), true);
  std::wostringstream other;
  m_log.setStream(Log::Debug, &other, false);
  ZQ_LOG_ON(m_log, Log::Warning, "zq::LogTest", "still open");
  EXPECT_NE(std::string::npos, readFile(path("shared.log")).find("still open"));
}

TEST_F(LogTest, UnopenablePathLeavesASilentLog) {
  m_log.setLogFile(wpath("missing/folder/x.log"), true);
  ASSERT_NE(nullptr, m_log.getStream(Log::Warning));
  ZQ_LOG_ON(m_log, Log::Warning, "zq::LogTest", "vanishes");
  m_log.setLogFile(Log::Fatal, wpath("missing/y.log"), false);
  ZQ_LOG_ON(m_log, Log::Fatal, "zq::LogTest", "vanishes too");
  m_log.closeLogFile();
  EXPECT_FALSE(std::ifstream(path("missing/folder/x.log")).good());
}

TEST_F(LogTest, ConcurrentStatementsWriteWholeLines) {
  m_log.setLogFile(wpath("threads.log"), true);
  constexpr int kThreads = 4, kLines = 200;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([this, t] {
      for (int i = 0; i < kLines; ++i) ZQ_LOG_ON(m_log, Log::Message, "zq::LogTest", "thread " << t << " line " << i);
    });
  for (auto& t : threads) t.join();
  std::ifstream in(path("threads.log"));
  const std::regex shape(R"(.{24}LOG      \[zq::LogTest\] thread \d line \d+)");
  std::set<std::string> bodies;
  for (std::string line; std::getline(in, line);) {
    EXPECT_TRUE(std::regex_match(line, shape)) << line;
    bodies.insert(line.substr(33));
  }
  EXPECT_EQ(static_cast<std::size_t>(kThreads * kLines), bodies.size());
}

// Counts what reaches it, and what reaches it after it was taken out of the log.
struct WatchedSink : std::wstreambuf {
  int_type overflow(int_type c) override {
    note();
    return c;
  }
  std::streamsize xsputn(const wchar_t*, std::streamsize n) override {
    note();
    return n;
  }
  void note() {
    if (closed) ++late;
    ++written;
  }
  std::atomic<bool> closed{false};
  std::atomic<int> written{0}, late{0};
};

// Other threads log while the application closes the log: a statement that found a stream
// before the close must not write to it afterwards, when it may already be deleted.
TEST_F(LogTest, ClosingWhileOtherThreadsLogLeavesTheClosedStreamAlone) {
  std::atomic<bool> stop(false);
  std::vector<std::thread> loggers;
  loggers.reserve(3);
  for (int t = 0; t < 3; ++t)
    loggers.emplace_back([&] {
      while (!stop) ZQ_LOG_ON(m_log, Log::Message, "zq::LogTest", "busy");
    });
  std::vector<std::unique_ptr<WatchedSink>> sinks;  // kept until the loggers end
  std::vector<std::unique_ptr<std::wostream>> streams;
  for (int i = 0; i < 200; ++i) {
    sinks.push_back(std::make_unique<WatchedSink>());
    streams.push_back(std::make_unique<std::wostream>(sinks.back().get()));
    m_log.setStream(Log::Message, streams.back().get(), false);
    ASSERT_TRUE(test::waitFor([&] { return sinks.back()->written > 0; }));
    m_log.closeLogFile();
    sinks.back()->closed = true;
  }
  stop = true;
  for (std::thread& logger : loggers) logger.join();
  int late = 0;
  for (const auto& sink : sinks) late += sink->late;
  EXPECT_EQ(0, late) << "lines written to a stream after closeLogFile returned";
}

TEST(LogDebuggerTest, EachFlushIsOneMessageAndNothingIsLostAtDestruction) {
  test::DebuggerCapture capture;
  Log::debugger() << L"first " << 1 << std::endl;
  Log::debugger() << L"second" << std::flush;
  {
    basic_dostream<wchar_t> local;
    local << L"unflushed";
  }
  EXPECT_EQ((std::vector<std::wstring>{L"first 1\n", L"second", L"unflushed"}), capture.messages());
}

TEST(LogDebuggerTest, DefaultSinkWritesUtf8ToStandardError) {
  EXPECT_EXIT(
      {
        Log::debugger() << L"gr\u00FC\u00DF \U0001F600" << std::endl;
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0), "gr\xC3\xBC\xC3\x9F \xF0\x9F\x98\x80");
}

TEST_F(LogTest, StandardStreamsAreRedirectedAndABadPathChangesNothing) {
  const std::string out = path("out.txt"), both = path("both.txt");
  { std::ofstream(out) << "before\n"; }
  EXPECT_EXIT(
      {
        Log::redirectStdOut(wconvert(out), true, false);
        std::printf("appended\n");
        Log::redirectStdErr(wconvert(m_dir + "/missing/err.txt"), false, false);
        std::fprintf(stderr, "still on stderr\n");
        Log::setStdOut(wconvert(both), false, true);
        std::printf("to both\n");
        std::fflush(stdout);
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0), "still on stderr");
  EXPECT_EQ("before\nappended\n", readFile(out));
  EXPECT_EQ("to both\n", readFile(both));
}

}  // namespace
}  // namespace zq
