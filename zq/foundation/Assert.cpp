#include <zq/foundation/Assert.h>

#include <zq/foundation/Log.h>

#include <csignal>
#include <cstdlib>

namespace zq {

namespace {
bool g_debugbreakEnabled = true;
}  // namespace

void assert_log_error(const std::wstring& condition, const std::wstring& position) {
  ZQ_LOG(Log::Critical, "zq::assert_log_error", L"(" << condition << L") " << position);
}

void assert_log_error_x(const std::wstring& where, const std::wstring& what, const std::wstring& condition,
                        const std::wstring& position) {
  ZQ_LOG(Log::Critical, "zq::assert_log_error_x", where << L": " << what << L" (" << condition << L") " << position);
}

void assert_debugger_error(const std::wstring& condition, const std::wstring& file, std::size_t line,
                           const std::wstring& function) {
  Log::debugger() << L"ZQ_ASSERT:" << L"(" << condition << L")" << file << L":" << line << L":" << function
                  << std::endl;
}

void assert_debugger_error_x(const std::wstring& where, const std::wstring& what, const std::wstring& condition,
                             const std::wstring& file, std::size_t line, const std::wstring& function) {
  std::wostream& out = Log::debugger();
  out << where << L":" << what << std::endl;
  out << L"ZQ_ASSERT_X:" << L"(" << condition << L")" << file << L":" << line << L":" << function << std::endl;
}

void terminal(const std::wstring& text, int) { ZQ_LOG(Log::Critical, "zq::terminal", text); }

bool& getDebugbreakEnabled() { return g_debugbreakEnabled; }

bool isDebugbreakEnabled() { return g_debugbreakEnabled; }

bool isDebuggerPresent() { return false; }

void debugBreak() {
  std::raise(SIGTRAP);
  std::abort();  // SIGTRAP ignored or handled: still stop
}

}  // namespace zq
