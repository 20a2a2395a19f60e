#include <zq/values/VersionNumber.h>

#include <zq/foundation/Exception.h>

#include <istream>
#include <ostream>
#include <sstream>

namespace zq {

namespace {

const char* const kParseErrorText = "VersionNumber::readFrom(std::istream & i):          Error parsing VersionNumber.";

bool isDigit(std::wistream::int_type c) { return c >= L'0' && c <= L'9'; }

bool atEnd(std::wistream& in) {
  return in.eof() || std::wistream::traits_type::eq_int_type(in.peek(), std::wistream::traits_type::eof());
}

}  // namespace

const wchar_t VersionNumber::kDelimeter = L'.';

VersionNumber::VersionNumber() : m_numbers{0, 0, 0, 0} {}

VersionNumber::VersionNumber(const VersionNumber& other) = default;

VersionNumber::VersionNumber(const std::wstring& text) : m_numbers{0, 0, 0, 0} {
  std::wistringstream in(text);
  readFrom(in);
}

VersionNumber::VersionNumber(unsigned int major, unsigned int minor, unsigned int stage, unsigned int build)
    : m_numbers{major, minor, stage, build} {}

VersionNumber::VersionNumber(const std::wstring& prefix, unsigned int major, unsigned int minor, unsigned int stage,
                             unsigned int build, const std::wstring& postfix)
    : m_prefix(prefix), m_numbers{major, minor, stage, build}, m_postfix(postfix) {}

VersionNumber::~VersionNumber() = default;

VersionNumber& VersionNumber::operator=(const VersionNumber& other) {
  if (this != &other) {
    m_prefix = other.m_prefix;
    for (std::size_t i = 0; i < 4; ++i) m_numbers[i] = other.m_numbers[i];
    m_postfix = other.m_postfix;
  }
  return *this;
}

bool VersionNumber::operator==(const VersionNumber& other) const {
  for (std::size_t i = 0; i < 4; ++i) {
    if (m_numbers[i] != other.m_numbers[i]) return false;
  }
  return true;
}

bool VersionNumber::operator<=(const VersionNumber& other) const {
  for (std::size_t i = 0; i < 4; ++i) {
    if (m_numbers[i] != other.m_numbers[i]) return m_numbers[i] < other.m_numbers[i];
  }
  return true;
}

// The other four go through the two above, virtually, so a subclass changes all six at once.
bool VersionNumber::operator!=(const VersionNumber& other) const { return !(*this == other); }
bool VersionNumber::operator>(const VersionNumber& other) const { return !(*this <= other); }
bool VersionNumber::operator>=(const VersionNumber& other) const { return *this == other || !(*this <= other); }
bool VersionNumber::operator<(const VersionNumber& other) const { return !(*this >= other); }

std::wstring VersionNumber::toString() const {
  std::wostringstream out;
  writeAt(out);
  return out.str();
}

void VersionNumber::fromString(const std::wstring& text) {
  std::wistringstream in(text);
  readFrom(in);
}

std::wistream& VersionNumber::readFrom(std::wistream& in) {
  m_postfix.clear();

  // Characters are taken with >>, so white space is skipped and never enters the prefix.
  std::wstring prefix;
  wchar_t c = 0;
  const std::wistream::int_type first = in.peek();
  if (first == L'M' || first == L'm') {
    // Names like "Main-V2.1": everything up to the "V" belongs to the prefix, digits included.
    while (in >> c) {
      prefix += c;
      if (c == L'V') break;
    }
  } else {
    // Look past the white space that >> would skip, so "Firmware 7.1" stops before the 7.
    const bool skipsWhite = (in.flags() & std::ios_base::skipws) != 0;
    for (;;) {
      if (skipsWhite) in >> std::ws;
      if (!in || atEnd(in)) break;
      const std::wistream::int_type next = in.peek();
      if (isDigit(next) || next == 0) break;
      if (!(in >> c)) break;
      prefix += c;
    }
  }
  m_prefix = prefix;

  // A number that does not parse sets the fail bit, and the later steps then leave their
  // fields alone.
  for (std::size_t i = 0; i < 4; ++i) {
    if (i > 0 && !in.eof()) in.get(c);  // the delimiter, whatever it is
    if (!in.eof()) in >> m_numbers[i];
  }
  if (!in.eof()) in >> m_postfix;

  if (in.bad()) throw RuntimeError(kParseErrorText);
  return in;
}

std::wostream& VersionNumber::writeAt(std::wostream& out) const {
  out << m_prefix << m_numbers[0];
  for (std::size_t i = 1; i < 4; ++i) out << kDelimeter << m_numbers[i];
  out << m_postfix;
  return out;
}

std::wstring VersionNumber::toShortVersion() const {
  std::wostringstream out;
  out << m_numbers[0] << kDelimeter << m_numbers[1];
  const unsigned int stage = m_numbers[2];
  const unsigned int build = m_numbers[3];
  if (stage > 3) out << kDelimeter << (stage >> 2);
  switch (stage & 3u) {
    case 0:
      out << L"a" << build;
      break;
    case 1:
      out << L"b" << build;
      break;
    case 2:
      out << L"rc" << build;
      break;
    default:
      if (build != 0) out << kDelimeter << build;
      break;
  }
  return out.str();
}

}  // namespace zq
