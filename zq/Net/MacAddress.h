// MacAddress: a network device's six-byte hardware address, with its text form of lower-case
// hexadecimal pairs between hyphens ("00-1a-2b-3c-4d-5e").
#pragma once

#include <zq/Export.h>

#include <cstddef>
#include <iosfwd>
#include <string>

namespace zq {

// A plain value: no heap data. Not synchronised; distinct objects may be used from distinct
// threads.
class ZQ_API MacAddress {
 public:
  static const std::size_t k_size = 6;
  // The first three bytes of the addresses of the devices this software serves; for callers.
  static const unsigned char k_zq0 = 0x02;
  static const unsigned char k_zq1 = 0x5A;
  static const unsigned char k_zq2 = 0x71;
  static const MacAddress NULL_MAC_ADDRESS;

  constexpr MacAddress() : m_bytes{} {}
  explicit MacAddress(const unsigned char bytes[6]);
  MacAddress(unsigned char b0, unsigned char b1, unsigned char b2, unsigned char b3, unsigned char b4,
             unsigned char b5);
  // fromString on a zeroed object: text that does not parse gives the zero address. Test
  // text with isMacAddress first where that matters.
  explicit MacAddress(const std::string& text);
  explicit MacAddress(const std::wstring& text);

  const unsigned char& operator[](std::size_t index) const { return m_bytes[index]; }  // no range check

  // -1, 0 or 1, byte by byte from the first.
  int compare(const MacAddress& other) const;
  bool operator==(const MacAddress& other) const { return compare(other) == 0; }
  bool operator!=(const MacAddress& other) const { return compare(other) != 0; }
  bool operator<(const MacAddress& other) const { return compare(other) < 0; }
  bool operator<=(const MacAddress& other) const { return compare(other) <= 0; }
  bool operator>(const MacAddress& other) const { return compare(other) > 0; }
  bool operator>=(const MacAddress& other) const { return compare(other) >= 0; }

  bool isZero() const;
  // Despite their names, these are single bytes: byte 0 and byte 4. hash() is their XOR.
  unsigned int hash() const { return static_cast<unsigned int>(m_bytes[4] ^ m_bytes[0]); }
  unsigned int lowWord() const { return m_bytes[0]; }
  unsigned int highWord() const { return m_bytes[4]; }

  // Reads six hyphen-separated fields of at most two hex digits each; text behind them is
  // ignored. Anything less leaves the object as it was, without report.
  void fromString(const std::string& text);
  void fromString(const std::wstring& text);
  // Six hyphen-separated hex fields of any length. Looser than fromString on purpose: text
  // that passes here can still fail there. A null pointer is false.
  static bool isMacAddress(const std::string& text);
  static bool isMacAddress(const char* text);

  std::string toString() const;
  std::wstring toWString() const;
  std::wstring toTString() const { return toWString(); }
  std::ostream& writeTo(std::ostream& os) const;
  std::wostream& writeTo(std::wostream& os) const;

 private:
  unsigned char m_bytes[6];
};

}  // namespace zq
