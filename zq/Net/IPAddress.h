// IPAddress: an IPv4 or IPv6 address as a 16-byte value that parses, prints, compares and
// classifies, and the machine's own IPv4 addresses with their netmasks.
//
// The bytes are kept in reverse of network order (index 15 is the most significant). An IPv4
// address a.b.c.d is kept as the IPv4-mapped IPv6 address ::ffff:a.b.c.d, reversed. Text that
// does not parse never throws: it leaves whatever the parser wrote.
#pragma once

#include <zq/Export.h>

#include <cstddef>
#include <iosfwd>
#include <list>
#include <string>

struct sockaddr;
struct sockaddr_in;
struct sockaddr_in6;

namespace zq {

// A plain value: no heap data, copyable as bytes. Not synchronised; distinct objects may be
// used from distinct threads.
class ZQ_API IPAddress {
 public:
  // Bit values of the IPv4 ranges that ipv4AddressRange() tells apart.
  enum Range {
    RANGE_INVALID = 0,  // only from the static overload, for text that does not parse
    RANGE_GLOBAL = 1,
    RANGE_THIS_NETWORK = 2,    // 0.x.x.x
    RANGE_PRIVATE = 4,         // 10/8, 172.16.x.x to 172.32.x.x, 192.168/16
    RANGE_LOOPBACK = 8,        // 127/8
    RANGE_LINK_LOCAL = 16,     // 169.254/16
    RANGE_RELAY_ANYCAST = 32,  // 192.88.99/24
    RANGE_BENCHMARK = 64,      // 198.18/15
    RANGE_MULTICAST = 128,     // 224.x.x.x to 239.x.x.x
    RANGE_RESERVED = 256       // 240.x.x.x and above
  };

  // 127.0.0.1; constant-initialised, so usable from other libraries' static initialisers.
  static const IPAddress LOCALHOST;

  // All sixteen bytes zero: neither IPv4 nor a meaningful IPv6 address, but isEmpty().
  constexpr IPAddress() : m_bytes{} {}
  constexpr IPAddress(unsigned char a, unsigned char b, unsigned char c, unsigned char d)
      : m_bytes{d, c, b, a, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0} {}
  // IPv4 form of a host-order value whose top byte is the first octet.
  explicit IPAddress(unsigned int value);
  // Parse the text (see the .cpp for its rules); whether it parsed is not reported here, use
  // isIPv4Address/isIPv6Address. A new object starts from zero bytes. A null pointer is empty text.
  IPAddress(const std::string& text);  // NOLINT(google-explicit-constructor): values convert from text
  IPAddress(const char* text);         // NOLINT(google-explicit-constructor)
  // Copies min(size, 16) bytes as they stand, in the internal order, and zeroes the rest.
  IPAddress(const unsigned char* bytes, std::size_t size);
  // AF_INET gives the IPv4 form of the address; AF_INET6 copies the 16 address bytes as they
  // stand (network order, not reversed: such an address does not print like its text form).
  // Null and other families give zero bytes.
  explicit IPAddress(const sockaddr* address);
  explicit IPAddress(const sockaddr_in* address);
  explicit IPAddress(const sockaddr_in6* address);

  bool isEmpty() const;  // the four low bytes in IPv4 form, all sixteen otherwise
  bool isIPv4() const;
  bool isIPv6() const { return !isIPv4(); }

  // Indexes 3..0 as one host-order value, the first octet in the top byte.
  unsigned int ipv4address() const;
  operator unsigned int() const { return ipv4address(); }  // NOLINT(google-explicit-constructor)
  unsigned int hash() const { return ipv4address(); }

  // The byte at min(index, 15), in the internal (reversed) order.
  unsigned char byteAt(std::size_t index) const { return m_bytes[index < 15 ? index : 15]; }
  unsigned char operator[](std::size_t index) const { return byteAt(index); }
  // Copies min(size, 16) bytes as stored, from index 0; returns that count.
  std::size_t getBytes(unsigned char* buffer, std::size_t size) const;

  // "a.b.c.d", or eight blank-padded hexadecimal groups "%4x:...:%4x" with no "::" shortening.
  std::string toString() const;
  operator std::string() const { return toString(); }  // NOLINT(google-explicit-constructor)
  // The same into a buffer; returns the length written, or (size_t)-1 if it did not fit
  // (the buffer then holds as much as fits, terminated, when size > 0).
  std::size_t toString(char* buffer, std::size_t size) const;
  // IPv4: the octets in the stream's present format. IPv6: a form of its own that sets the
  // fill to '0' and begins with "2048128"; readable text comes from toString().
  void print(std::ostream& os) const;
  void print(std::wostream& os) const;

  bool operator==(const IPAddress& other) const;
  bool operator!=(const IPAddress& other) const { return !(*this == other); }
  // True only in IPv4 form with the four low bytes equal to the host-order value.
  bool operator==(unsigned int value) const { return isIPv4() && ipv4address() == value; }
  bool operator!=(unsigned int value) const { return !(*this == value); }
  // Byte-wise from index 0 upward: the last octet counts first, so the order is not numeric.
  bool operator<(const IPAddress& other) const;
  bool operator<=(const IPAddress& other) const { return !(other < *this); }
  bool operator>(const IPAddress& other) const { return other < *this; }
  bool operator>=(const IPAddress& other) const { return !(*this < other); }

  // These change byte 0 alone, wrapping inside it without carry (10.0.0.255 + 1 is 10.0.0.0).
  IPAddress& operator++();
  IPAddress operator++(int);
  IPAddress& operator--();
  IPAddress operator--(int);
  IPAddress operator+(int n) const;
  IPAddress operator-(int n) const;

  // The text parses to a non-zero address of that form.
  static bool isIPv4Address(const std::string& text);
  static bool isIPv6Address(const std::string& text);
  // RANGE_INVALID when the text does not parse.
  static Range ipv4AddressRange(const std::string& text);
  // Classifies by the first three octets, whatever the form.
  Range ipv4AddressRange() const;

  // IPv4 form of (address & netmask) | ~netmask on the low 32 bits.
  static IPAddress broadcastAddress(const IPAddress& address, const IPAddress& netmask);
  // The IPv4 addresses of the machine's network adapters (loopback excluded), and their
  // netmasks and broadcast addresses; the first two correspond element by element. Empty if
  // the system can't tell.
  static std::list<IPAddress> enumLocalAddresses();
  static std::list<IPAddress> enumLocalNetmasks();
  static std::list<IPAddress> enumLocalBroadcastAddresses();

  // Localhost, or inside the subnet of one of the given address/netmask pairs (pairs with a
  // zero address or mask are passed over). The first form asks the system for the pairs.
  bool isInLocalSubnet() const;
  bool isInLocalSubnet(const std::list<IPAddress>& addresses, const std::list<IPAddress>& netmasks) const;

 private:
  friend class IPPort;

  // The parser. Reads at most `length` characters. True if the result is a non-zero address.
  bool setString(const std::string& text);
  bool setString(const char* text, std::size_t length);
  void setIPv4Address(unsigned int value);
  void setIPv4Address(unsigned char a, unsigned char b, unsigned char c, unsigned char d);
  static bool memcmpchr(const unsigned char* bytes, unsigned char value, std::size_t size);

  unsigned char m_bytes[16];
};

ZQ_API unsigned int qHash(const IPAddress& address);
ZQ_API std::ostream& operator<<(std::ostream& os, const IPAddress& address);
ZQ_API std::wostream& operator<<(std::wostream& os, const IPAddress& address);

}  // namespace zq
