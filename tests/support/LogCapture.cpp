#include "tests/support/LogCapture.h"

#include <mutex>

namespace zq {
namespace test {

LogCapture::LogCapture(Log::ELevel threshold) : m_previousLevel(Log::instance().logLevel()) {
  Log& log = Log::instance();
  std::lock_guard<std::mutex> lock(log.mutex());
  for (int level = 0; level < 5; ++level) {
    m_previous[level] = log.getStream(static_cast<Log::ELevel>(level));
    log.setStream(static_cast<Log::ELevel>(level), &m_stream, false);
  }
  log.setLogLevel(threshold);
}

LogCapture::~LogCapture() {
  Log& log = Log::instance();
  std::lock_guard<std::mutex> lock(log.mutex());
  for (int level = 0; level < 5; ++level) log.setStream(static_cast<Log::ELevel>(level), m_previous[level], false);
  log.setLogLevel(m_previousLevel);
}

std::wstring LogCapture::text() const {
  std::lock_guard<std::mutex> lock(Log::instance().mutex());
  return m_stream.str();
}

std::vector<std::string> LogCapture::lines() const {
  std::vector<std::string> result;
  std::wistringstream in(text());
  for (std::wstring line; std::getline(in, line);) result.push_back(convert(line));
  return result;
}

std::vector<std::string> LogCapture::linesWith(const std::string& needle) const {
  std::vector<std::string> result;
  for (const std::string& line : lines())
    if (line.find(needle) != std::string::npos) result.push_back(line);
  return result;
}

std::vector<std::string> LogCapture::bodies() const {
  constexpr std::size_t kPrefixWidth = 33;
  std::vector<std::string> result;
  for (const std::string& line : lines()) result.push_back(line.size() > kPrefixWidth ? line.substr(kPrefixWidth) : "");
  return result;
}

void LogCapture::clear() {
  std::lock_guard<std::mutex> lock(Log::instance().mutex());
  m_stream.str(std::wstring());
}

namespace {

std::mutex g_debuggerMutex;
std::vector<std::wstring> g_debuggerMessages;

void collect(const wchar_t* message) {
  std::lock_guard<std::mutex> lock(g_debuggerMutex);
  g_debuggerMessages.emplace_back(message);
}

}  // namespace

DebuggerCapture::DebuggerCapture() {
  {
    std::lock_guard<std::mutex> lock(g_debuggerMutex);
    g_debuggerMessages.clear();
  }
  m_previous = Log::setDebuggerSink(&collect);
}

DebuggerCapture::~DebuggerCapture() { Log::setDebuggerSink(m_previous); }

std::vector<std::wstring> DebuggerCapture::messages() const {
  std::lock_guard<std::mutex> lock(g_debuggerMutex);
  return g_debuggerMessages;
}

}  // namespace test
}  // namespace zq
