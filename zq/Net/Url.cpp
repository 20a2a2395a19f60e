#include <zq/Net/Url.h>
#include <zq/Net/internal/HTScan.h>

#include <cstdint>
#include <cstdlib>
#include <new>
#include <ostream>

namespace zq {
namespace {

// Takes over a buffer of the parser; null means that it ran out of memory.
std::string take(char* parsed) {
  if (!parsed) throw std::bad_alloc();
  const std::unique_ptr<char, decltype(&std::free)> owner(parsed, &std::free);
  return std::string(parsed);
}

// ASCII letters only, as tolower in the "C" locale: comparison and hash must agree whatever
// locale the program sets.
std::uint32_t lower(std::uint32_t c) { return (c >= 'A' && c <= 'Z') ? c - 'A' + 'a' : c; }

// One character at `s` (not at its NUL), cut to 16 bits; `length` gets the bytes it spans.
// A continuation byte where a character should start is "?" with length 0. A NUL ends a
// sequence early, so the walk never leaves the text.
std::uint32_t decode(const unsigned char* s, std::size_t& length) {
  const unsigned lead = s[0];
  if (lead < 0x80) {
    length = 1;
    return lead;
  }
  if ((lead & 0xC0) == 0x80) {
    length = 0;
    return '?';
  }
  std::size_t bytes;
  std::uint32_t value;
  if (lead < 0xE0) {
    bytes = 2, value = lead & 0x1F;
  } else if (lead < 0xF0) {
    bytes = 3, value = lead & 0x0F;
  } else if (lead < 0xF8) {
    bytes = 4, value = lead & 0x07;
  } else if (lead < 0xFC) {
    bytes = 5, value = lead & 0x03;
  } else if (lead < 0xFE) {
    bytes = 6, value = lead & 0x01;
  } else {
    bytes = lead == 0xFE ? 7 : 8, value = 0;
  }
  std::size_t i = 1;
  for (; i < bytes && s[i]; ++i) value = ((value << 6) | (s[i] & 0x3F)) & 0xFFFF;
  length = i;
  return value & 0xFFFF;
}

bool sameText(const char* left, const char* right) {
  auto a = reinterpret_cast<const unsigned char*>(left);
  auto b = reinterpret_cast<const unsigned char*>(right);
  while (*a && *b) {
    std::size_t lengthA;
    std::size_t lengthB;
    if (lower(decode(a, lengthA)) != lower(decode(b, lengthB))) return false;
    // Stray continuation bytes on both sides would hold the walk still: step over them.
    if (lengthA == 0 && lengthB == 0) lengthA = lengthB = 1;
    a += lengthA;
    b += lengthB;
  }
  const unsigned char* rest = *a ? a : b;
  std::size_t length;
  return *rest == 0 || lower(decode(rest, length)) == 0;
}

}  // namespace

Url::Url() = default;
Url::Url(const Url& other) : m_url(other.m_url) {}
Url::Url(const std::string& url) : m_url(url) {}
Url::Url(const char* url) : m_url(url ? url : "") {}
Url::Url(const char* url, std::size_t length) : m_url(url ? std::string(url, length) : std::string()) {}
Url::~Url() = default;

Url& Url::operator=(const Url& other) {
  if (this != &other) assign(other.m_url);
  return *this;
}

Url& Url::operator=(const std::string& url) {
  assign(url);
  return *this;
}

Url& Url::operator=(const char* url) {
  assign(url ? std::string(url) : std::string());
  return *this;
}

bool Url::empty() const { return m_url.empty() || m_url[0] == '\0'; }

void Url::scan() const {
  if (!m_scanned.empty()) return;
  if (!m_parts) m_parts.reset(new HTParts());
  m_scanned = m_url;
  internal::HTScan(&m_scanned[0], m_parts.get());
}

void Url::assign(const std::string& url) {
  if (m_parts) *m_parts = HTParts{};
  m_scanned.clear();
  m_url = url;
}

const char* Url::scheme() const {
  scan();
  return m_parts->scheme;
}

const char* Url::host() const {
  scan();
  return m_parts->host;
}

const char* Url::port() const {
  scan();
  return m_parts->port;
}

const char* Url::query() const {
  scan();
  return m_parts->query;
}

const char* Url::fragment() const {
  scan();
  return m_parts->fragment;
}

const char* Url::path() const {
  scan();
  return m_parts->absolute ? m_parts->absolute : m_parts->relative;
}

bool Url::absolute() const {
  scan();
  return m_parts->absolute != nullptr;
}

bool Url::relative() const {
  scan();
  return m_parts->relative != nullptr || m_parts->fragment != nullptr;
}

std::string Url::append_str(const char* base, const char* other) { return take(HTParse(other, base, HT_ALL)); }

Url& Url::append(const char* other) {
  if (other && *other) assign(append_str(m_url.c_str(), other));
  return *this;
}

Url Url::operator/(const char* other) const {
  Url result(*this);
  result.append(other);
  return result;
}

Url& Url::operator%=(const char* base) {
  if (!base || !*base) return *this;
  if (empty()) {
    assign(base);
  } else if (relative()) {
    assign(append_str(base, m_url.c_str()));
  }
  return *this;
}

Url Url::operator%(const char* base) const {
  Url result(*this);
  result %= base;
  return result;
}

Url& Url::relativize(const char* base) {
  if (base && *base) assign(take(HTRelative(m_url.c_str(), base)));
  return *this;
}

Url& Url::escape() {
  // 31 keeps every character of any class, separators included.
  assign(take(HTEscape(m_url.c_str(), 31)));
  return *this;
}

bool Url::validate(std::string url) {
  HTParts parts;
  internal::HTScan(&url[0], &parts);
  return parts.absolute || parts.relative || parts.fragment;
}

bool Url::operator==(const Url& other) const { return sameText(m_url.c_str(), other.m_url.c_str()); }
bool Url::operator==(const std::string& other) const { return sameText(m_url.c_str(), other.c_str()); }
bool Url::operator==(const char* other) const { return sameText(m_url.c_str(), other ? other : ""); }

std::ostream& operator<<(std::ostream& out, const Url& url) { return out << url.str(); }

std::size_t hash_value(const Url& url) {
  std::uint64_t hash = 0xcbf29ce484222325ull;
  for (auto p = reinterpret_cast<const unsigned char*>(url.str().c_str()); *p; ++p) {
    hash ^= lower(*p);
    hash *= 0x100000001b3ull;
  }
  return static_cast<std::size_t>(hash);
}

}  // namespace zq
