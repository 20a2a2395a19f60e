// Narrow/wide text conversion and the small helpers every subsystem shares.
//
// The conversions map one character to one character through the std::ctype<wchar_t> facet
// of the global locale in force at the moment of the call; what the locale can't express
// becomes '?'. There is no UTF-8 decoding here: a string of length n converts to length n.
// All functions are thread-safe as long as their arguments are not being changed.
#pragma once

#include <zq/Export.h>

#include <iosfwd>
#include <string>

namespace zq {

// The library's word for a narrow string.
typedef std::string zqstring;

// ---- to narrow -------------------------------------------------------------------------
inline char& convert(char& c) { return c; }
inline const char& convert(const char& c) { return c; }
inline std::string& convert(std::string& s) { return s; }
inline const std::string& convert(const std::string& s) { return s; }
ZQ_API std::string convert(const char* s);
ZQ_API std::string convert(const std::wstring& s);
ZQ_API std::string convert(const wchar_t* s);
ZQ_API char convert(wchar_t c);

// ---- to wide ---------------------------------------------------------------------------
inline wchar_t& wconvert(wchar_t& c) { return c; }
inline const wchar_t& wconvert(const wchar_t& c) { return c; }
inline std::wstring& wconvert(std::wstring& s) { return s; }
inline const std::wstring& wconvert(const std::wstring& s) { return s; }
ZQ_API std::wstring wconvert(const wchar_t* s);
ZQ_API std::wstring wconvert(const std::string& s);
ZQ_API std::wstring wconvert(const char* s);
ZQ_API wchar_t wconvert(char c);

// ---- to the library's text type, which is wide -----------------------------------------
inline wchar_t& tconvert(wchar_t& c) { return c; }
inline const wchar_t& tconvert(const wchar_t& c) { return c; }
inline std::wstring& tconvert(std::wstring& s) { return s; }
inline const std::wstring& tconvert(const std::wstring& s) { return s; }
inline std::wstring tconvert(const wchar_t* s) { return wconvert(s); }
inline std::wstring tconvert(const std::string& s) { return wconvert(s); }
inline std::wstring tconvert(const char* s) { return wconvert(s); }
inline wchar_t tconvert(char c) { return wconvert(c); }

// ---- mixed-width stream operators (found by code in namespace zq, or via using) ----------
// Converts and inserts, so the stream's width, fill and flags apply to the converted text.
ZQ_API std::ostream& operator<<(std::ostream& os, const std::wstring& s);
ZQ_API std::wostream& operator<<(std::wostream& os, const std::string& s);
// Word extraction into the other width; on failure the target gets the empty conversion.
ZQ_API std::istream& operator>>(std::istream& is, std::wstring& s);
ZQ_API std::wistream& operator>>(std::wistream& is, std::string& s);
// Copies what `in` has ready (readsome) in blocks of 256, then flushes `out`. Not a read to
// end of file: an input with nothing buffered writes nothing.
ZQ_API std::wostream& operator<<(std::wostream& out, std::wistream& in);

// One shared empty string, the same object for the whole process.
ZQ_API const std::string& emptyString();

// Returns its argument; kept for callers that print type names uniformly.
ZQ_API const char* type_name(const char* name);

namespace math {
// Absolute value in two's complement: the most negative value comes back unchanged.
template <class T>
T abs(const T& value);
extern template ZQ_API long long abs<long long>(const long long&);
}  // namespace math

}  // namespace zq
