// IPPort: a network endpoint, an IP address or a DNS name with a port, parsed from the text a
// user or a device gives ("host:port", "[v6]:port") and printed back.
#pragma once

#include <zq/Export.h>
#include <zq/Net/IPAddress.h>

#include <iosfwd>
#include <string>

namespace zq {

// Holds at most one of address and name. A value with no shared state: not synchronised,
// distinct objects may be used from distinct threads.
class ZQ_API IPPort {
 public:
  // A default-constructed object: no address, no name, port 80.
  static const IPPort EMPTY;

  IPPort();
  IPPort(const IPPort& other);
  IPPort(const IPAddress& address, unsigned short port);
  // Starts with `port` and no address, then setAddress(text, port). A null text is empty.
  IPPort(const std::string& text, unsigned short port);
  IPPort(const char* text, unsigned short port);
  virtual ~IPPort();
  IPPort& operator=(const IPPort& other);

  const IPAddress& getIP() const { return m_ip; }
  const std::string& getDNS() const { return m_dns; }
  unsigned short getPort() const { return m_port; }
  bool hasDNS() const { return !m_dns.empty(); }
  bool hasIP() const { return !m_ip.isEmpty(); }
  bool isEmpty() const { return m_dns.empty() && m_ip.isEmpty(); }  // the port does not count

  void setPort(unsigned short port) { m_port = port; }
  // Only when no port is set: false if one is, and then nothing changes. A zero `port` changes
  // nothing either, but still answers true.
  bool setDefaultPort(unsigned short port);

  // Text up to the last ':' is the host and what follows it the port; a bracketed host
  // ("[fe80::1]:554") keeps its colons. A non-zero `port` beats the text's port; with neither,
  // the object keeps its port. Text that the address parser turns into a non-zero address is
  // an address, anything else a name (so a bare IPv6 address loses its last group to the port).
  void setAddress(const std::string& text, unsigned short port);

  // Names sort before addresses; names by bytes; addresses by the low 32 bits only (unsigned
  // difference taken as signed); then the ports.
  int compare(const IPPort& other) const;
  bool operator==(const IPPort& other) const { return compare(other) == 0; }
  bool operator!=(const IPPort& other) const { return compare(other) != 0; }
  bool operator<(const IPPort& other) const { return compare(other) < 0; }
  bool operator<=(const IPPort& other) const { return compare(other) <= 0; }
  bool operator>(const IPPort& other) const { return compare(other) > 0; }
  bool operator>=(const IPPort& other) const { return compare(other) >= 0; }

  unsigned int hash() const;

  // The name, an IPv4 address, or "[" IPv6 "]" in IPAddress's stream form; with a non-zero
  // port and `withPort`, then "512:" and the port: "192.168.0.1512:80". Peers read that form.
  void print(std::ostream& os, bool withPort) const;
  virtual std::string toString(bool withPort) const;
  // With the port only when it is set and differs from `defaultPort`.
  std::string toString(int defaultPort) const;
  operator std::string() const { return toString(m_port != 0); }  // NOLINT(google-explicit-constructor)

 private:
  IPAddress m_ip;
  std::string m_dns;
  unsigned short m_port;
};

}  // namespace zq
