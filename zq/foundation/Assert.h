// Assertion reporters and the debug-break flag.
//
// The reporters only write: none of them stops the program, breaks or throws. The _log_
// pair writes one Critical line through the log (filtered like any statement); the
// _debugger_ pair writes to Log::debugger() whatever the log's state. ZQ_ASSERT and
// ZQ_ASSERT_X decide what happens after the report.
#pragma once

#include <zq/Export.h>

#include <cstddef>
#include <string>

namespace zq {

// "(condition) position" as a Critical line of "zq::assert_log_error".
ZQ_API void assert_log_error(const std::wstring& condition, const std::wstring& position);
// "where: what (condition) position" as a Critical line of "zq::assert_log_error_x".
ZQ_API void assert_log_error_x(const std::wstring& where, const std::wstring& what, const std::wstring& condition,
                               const std::wstring& position);
// "ZQ_ASSERT:(condition)file:line:function" to the debugger stream.
ZQ_API void assert_debugger_error(const std::wstring& condition, const std::wstring& file, std::size_t line,
                                  const std::wstring& function);
// "where:what", then "ZQ_ASSERT_X:(condition)file:line:function", to the debugger stream.
ZQ_API void assert_debugger_error_x(const std::wstring& where, const std::wstring& what, const std::wstring& condition,
                                    const std::wstring& file, std::size_t line, const std::wstring& function);
// `text` as a Critical line of "zq::terminal". Returns normally; the int is ignored.
ZQ_API void terminal(const std::wstring& text, int);

// The process-wide debug-break flag, true at start; clients read and write it.
ZQ_API bool& getDebugbreakEnabled();
ZQ_API bool isDebugbreakEnabled();
// Always false: assertion macros never take a debugger path on its word.
ZQ_API bool isDebuggerPresent();

// Stops the process for a failed assertion: SIGTRAP, which a debugger catches and which
// otherwise ends the program with a core dump.
[[noreturn]] ZQ_API void debugBreak();

}  // namespace zq

#define ZQ_ASSERT_WIDEN2(x) L##x
#define ZQ_ASSERT_WIDEN(x) ZQ_ASSERT_WIDEN2(x)
#define ZQ_ASSERT_STRINGIFY2(x) #x
#define ZQ_ASSERT_STRINGIFY(x) ZQ_ASSERT_STRINGIFY2(x)

// In builds without NDEBUG: a false condition is reported to the log and to the debugger
// stream, and the program stops if the debug-break flag is set. With NDEBUG the condition
// is not evaluated.
#ifdef NDEBUG
#define ZQ_ASSERT(condition) ((void)0)
#define ZQ_ASSERT_X(condition, where, what) ((void)0)
#else
#define ZQ_ASSERT(condition)                                                                           \
  do {                                                                                                 \
    if (!(condition)) {                                                                                \
      ::zq::assert_log_error(L"" ZQ_ASSERT_WIDEN(#condition),                                          \
                             ::zq::wconvert(__FILE__ ":" ZQ_ASSERT_STRINGIFY(__LINE__)));              \
      ::zq::assert_debugger_error(L"" ZQ_ASSERT_WIDEN(#condition), ::zq::wconvert(__FILE__), __LINE__, \
                                  ::zq::wconvert(__func__));                                           \
      if (::zq::isDebugbreakEnabled()) ::zq::debugBreak();                                             \
    }                                                                                                  \
  } while (false)
#define ZQ_ASSERT_X(condition, where, what)                                                                       \
  do {                                                                                                            \
    if (!(condition)) {                                                                                           \
      ::zq::assert_log_error_x(::zq::wconvert(where), ::zq::wconvert(what), L"" ZQ_ASSERT_WIDEN(#condition),      \
                               ::zq::wconvert(__FILE__ ":" ZQ_ASSERT_STRINGIFY(__LINE__)));                       \
      ::zq::assert_debugger_error_x(::zq::wconvert(where), ::zq::wconvert(what), L"" ZQ_ASSERT_WIDEN(#condition), \
                                    ::zq::wconvert(__FILE__), __LINE__, ::zq::wconvert(__func__));                \
      if (::zq::isDebugbreakEnabled()) ::zq::debugBreak();                                                        \
    }                                                                                                             \
  } while (false)
#endif
