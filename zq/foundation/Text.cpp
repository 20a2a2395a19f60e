#include <zq/foundation/Text.h>

#include <istream>
#include <limits>
#include <locale>
#include <memory>
#include <new>
#include <ostream>
#include <type_traits>

namespace zq {

namespace {

const std::ctype<wchar_t>& ctypeOf(const std::locale& locale) { return std::use_facet<std::ctype<wchar_t>>(locale); }

}  // namespace

std::string convert(const char* s) { return std::string(s); }

std::string convert(const std::wstring& s) {
  std::string result;
  if (s.empty()) return result;
  const std::locale locale;  // held for the whole call
  std::unique_ptr<char[]> buffer(new char[s.size()]);
  ctypeOf(locale).narrow(s.data(), s.data() + s.size(), '?', buffer.get());
  result.assign(buffer.get(), s.size());
  return result;
}

std::string convert(const wchar_t* s) { return convert(std::wstring(s)); }

char convert(wchar_t c) { return ctypeOf(std::locale()).narrow(c, '?'); }

std::wstring wconvert(const wchar_t* s) { return std::wstring(s); }

std::wstring wconvert(const std::string& s) {
  std::wstring result;
  if (s.empty()) return result;
  if (s.size() > std::numeric_limits<std::size_t>::max() / sizeof(wchar_t)) throw std::bad_alloc();
  const std::locale locale;
  std::unique_ptr<wchar_t[]> buffer(new wchar_t[s.size()]);
  ctypeOf(locale).widen(s.data(), s.data() + s.size(), buffer.get());
  result.assign(buffer.get(), s.size());
  return result;
}

std::wstring wconvert(const char* s) { return wconvert(std::string(s)); }

wchar_t wconvert(char c) { return ctypeOf(std::locale()).widen(c); }

std::ostream& operator<<(std::ostream& os, const std::wstring& s) { return os << convert(s); }

std::wostream& operator<<(std::wostream& os, const std::string& s) { return os << wconvert(s); }

std::istream& operator>>(std::istream& is, std::wstring& s) {
  std::string word;
  is >> word;
  s = wconvert(word);
  return is;
}

std::wistream& operator>>(std::wistream& is, std::string& s) {
  std::wstring word;
  is >> word;
  s = convert(word);
  return is;
}

std::wostream& operator<<(std::wostream& out, std::wistream& in) {
  constexpr std::streamsize kBlock = 256;
  std::unique_ptr<wchar_t[]> buffer(new wchar_t[kBlock]);
  in.sync();
  for (std::streamsize n = in.readsome(buffer.get(), kBlock); n != 0; n = in.readsome(buffer.get(), kBlock)) {
    out.write(buffer.get(), n);
  }
  out.flush();
  return out;
}

const std::string& emptyString() {
  static const std::string empty;
  return empty;
}

const char* type_name(const char* name) { return name; }

namespace math {

template <class T>
T abs(const T& value) {
  // Negate in the unsigned type: no overflow, and the most negative value maps to itself.
  using U = std::make_unsigned_t<T>;
  return value < 0 ? static_cast<T>(U(0) - static_cast<U>(value)) : value;
}

template ZQ_API long long abs<long long>(const long long&);

}  // namespace math

}  // namespace zq
