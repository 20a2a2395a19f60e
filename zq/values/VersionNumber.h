// VersionNumber: a software or firmware version of four unsigned numbers with free text before
// and behind them. It parses such text, prints it, compares by the numbers alone and gives a
// short form for display in which the third number carries a release stage.
#pragma once

#include <zq/Export.h>

#include <cstddef>
#include <iosfwd>
#include <string>

namespace zq {

// A plain value; one thread at a time. Subclasses may override == and <=, and the other four
// comparisons follow, as they are all built on those two virtual ones.
class ZQ_API VersionNumber {
 public:
  static const wchar_t kDelimeter;  // "."

  VersionNumber();
  VersionNumber(const VersionNumber& other);
  // Parses `text` as readFrom does, starting from zero and empty fields.
  VersionNumber(const std::wstring& text);
  VersionNumber(unsigned int major, unsigned int minor, unsigned int stage, unsigned int build);
  VersionNumber(const std::wstring& prefix, unsigned int major, unsigned int minor, unsigned int stage,
                unsigned int build, const std::wstring& postfix);
  virtual ~VersionNumber();

  VersionNumber& operator=(const VersionNumber& other);

  // Comparisons look at the four numbers only; prefix and postfix play no part.
  virtual bool operator==(const VersionNumber& other) const;
  virtual bool operator!=(const VersionNumber& other) const;
  virtual bool operator>(const VersionNumber& other) const;
  virtual bool operator>=(const VersionNumber& other) const;
  virtual bool operator<(const VersionNumber& other) const;
  virtual bool operator<=(const VersionNumber& other) const;

  // writeAt into a string.
  virtual std::wstring toString() const;
  // readFrom over a string stream of `text`.
  virtual void fromString(const std::wstring& text);
  // Reads "<prefix><n>.<n>.<n>.<n><postfix word>". A prefix that starts with "M" or "m" runs up
  // to and including the first capital "V"; any other runs up to the first digit. White space
  // never enters the prefix, the delimiters are not checked, the postfix is one word, and
  // numbers the text does not reach keep their values. Malformed text leaves a partly filled
  // object and the stream's fail bit; only a bad stream throws RuntimeError.
  virtual std::wistream& readFrom(std::wistream& in);
  // The prefix, the four numbers with "." between them in the stream's format, the postfix.
  virtual std::wostream& writeAt(std::wostream& out) const;

  // "major.minor", then ".patch" when the third number is above 3 (patch = third >> 2), then by
  // the third number's low two bits: "a<build>", "b<build>", "rc<build>", or for a final
  // release ".<build>" when the build is not 0. Prefix and postfix are left out.
  std::wstring toShortVersion() const;

  const std::wstring& getPrefix() const { return m_prefix; }
  const std::wstring& getPostfix() const { return m_postfix; }
  // The number at `index` (0 is the most significant); `index` must be below 4.
  unsigned int getNumber(std::size_t index) const { return m_numbers[index]; }
  void setPrefix(const std::wstring& prefix) { m_prefix = prefix; }
  void setPostfix(const std::wstring& postfix) { m_postfix = postfix; }
  void setNumber(std::size_t index, unsigned int value) { m_numbers[index] = value; }

 private:
  std::wstring m_prefix;
  unsigned int m_numbers[4];
  std::wstring m_postfix;
};

}  // namespace zq
