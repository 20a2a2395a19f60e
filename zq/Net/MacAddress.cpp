#include <zq/Net/MacAddress.h>

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <ostream>

namespace zq {

const std::size_t MacAddress::k_size;
const unsigned char MacAddress::k_zq0;
const unsigned char MacAddress::k_zq1;
const unsigned char MacAddress::k_zq2;
const MacAddress MacAddress::NULL_MAC_ADDRESS;

namespace {
template <class Char>
struct Formats;
template <>
struct Formats<char> {
  static constexpr const char* strict = "%2x-%2x-%2x-%2x-%2x-%2x";
  static constexpr const char* loose = "%x-%x-%x-%x-%x-%x";
  static constexpr const char* print = "%02x-%02x-%02x-%02x-%02x-%02x";
  static int scan(const char* text, const char* format, unsigned int* f) {
    return std::sscanf(text, format, &f[0], &f[1], &f[2], &f[3], &f[4], &f[5]);
  }
};
template <>
struct Formats<wchar_t> {
  static constexpr const wchar_t* strict = L"%2x-%2x-%2x-%2x-%2x-%2x";
  static int scan(const wchar_t* text, const wchar_t* format, unsigned int* f) {
    return std::swscanf(text, format, &f[0], &f[1], &f[2], &f[3], &f[4], &f[5]);
  }
};

// All six fields or nothing.
template <class Char>
void scanInto(unsigned char* bytes, const Char* text) {
  unsigned int fields[6];
  if (Formats<Char>::scan(text, Formats<Char>::strict, fields) != 6) return;
  for (int i = 0; i < 6; ++i) bytes[i] = static_cast<unsigned char>(fields[i]);
}
}  // namespace

MacAddress::MacAddress(const unsigned char bytes[6]) : m_bytes{} {
  if (bytes != nullptr) std::memcpy(m_bytes, bytes, sizeof m_bytes);
}

MacAddress::MacAddress(unsigned char b0, unsigned char b1, unsigned char b2, unsigned char b3, unsigned char b4,
                       unsigned char b5)
    : m_bytes{b0, b1, b2, b3, b4, b5} {}

MacAddress::MacAddress(const std::string& text) : m_bytes{} { fromString(text); }

MacAddress::MacAddress(const std::wstring& text) : m_bytes{} { fromString(text); }

int MacAddress::compare(const MacAddress& other) const {
  for (std::size_t i = 0; i < k_size; ++i) {
    if (m_bytes[i] != other.m_bytes[i]) return m_bytes[i] < other.m_bytes[i] ? -1 : 1;
  }
  return 0;
}

bool MacAddress::isZero() const { return *this == NULL_MAC_ADDRESS; }

void MacAddress::fromString(const std::string& text) { scanInto(m_bytes, text.c_str()); }

void MacAddress::fromString(const std::wstring& text) { scanInto(m_bytes, text.c_str()); }

bool MacAddress::isMacAddress(const std::string& text) { return isMacAddress(text.c_str()); }

bool MacAddress::isMacAddress(const char* text) {
  unsigned int fields[6];
  return text != nullptr && Formats<char>::scan(text, Formats<char>::loose, fields) == 6;
}

std::string MacAddress::toString() const {
  char text[18];
  std::snprintf(text, sizeof text, Formats<char>::print, m_bytes[0], m_bytes[1], m_bytes[2], m_bytes[3], m_bytes[4],
                m_bytes[5]);
  return std::string(text, 17);
}

std::wstring MacAddress::toWString() const {
  const std::string narrow = toString();
  return std::wstring(narrow.begin(), narrow.end());
}

std::ostream& MacAddress::writeTo(std::ostream& os) const { return os << toString(); }

std::wostream& MacAddress::writeTo(std::wostream& os) const { return os << toWString(); }

}  // namespace zq
