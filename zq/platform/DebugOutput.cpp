#include <zq/platform/DebugOutput.h>

#include <zq/platform/Utf8.h>

#include <atomic>
#include <cwchar>
#include <string>

#include <unistd.h>

namespace zq {
namespace platform {

namespace {

void writeToStdErr(const wchar_t* message) {
  // One write call per message, so concurrent messages don't interleave within a line.
  const std::string bytes = toUtf8(std::wstring(message));
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::write(STDERR_FILENO, bytes.data() + done, bytes.size() - done);
    if (n <= 0) return;
    done += static_cast<std::size_t>(n);
  }
}

std::atomic<DebugSink> g_sink{&writeToStdErr};

}  // namespace

void outputDebugString(const wchar_t* message) { g_sink.load()(message); }

DebugSink setDebugSink(DebugSink sink) { return g_sink.exchange(sink ? sink : &writeToStdErr); }

}  // namespace platform
}  // namespace zq
