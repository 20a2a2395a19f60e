#include <zq/Net/IPAddress.h>
#include <zq/Net/IPPort.h>

#include "tests/support/RandomText.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>

namespace {

using zq::IPAddress;

std::string bytesOf(const IPAddress& a) {
  std::string s;
  char hex[4];
  for (int i = 15; i >= 0; --i) {
    std::snprintf(hex, sizeof hex, "%02x", a[static_cast<size_t>(i)]);
    s += hex;
  }
  return s;
}

// The system's reading of the text, in the library's reversed order.
std::string systemBytes(const std::string& text) {
  unsigned char n[16] = {};
  if (inet_pton(AF_INET6, text.c_str(), n) != 1) {
    if (inet_pton(AF_INET, text.c_str(), n + 12) != 1) return "unparsable";
    n[10] = n[11] = 0xFF;
  }
  unsigned char reversed[16];
  for (int i = 0; i < 16; ++i) reversed[i] = n[15 - i];
  return bytesOf(IPAddress(reversed, 16));
}

// Random addresses in the text forms devices send: dotted, full and compressed groups, upper
// case, leading zeros, the IPv4-mapped form and dotted tails.
std::vector<std::string> generatedTexts() {
  std::mt19937 engine(7);
  auto byte = [&] { return static_cast<unsigned char>(engine() & 0xFF); };
  std::vector<std::string> texts;
  char text[INET6_ADDRSTRLEN + 8];
  for (int i = 0; i < 400; ++i) {
    unsigned char n[16];
    for (unsigned char& b : n) b = byte();
    // Runs of zero groups, so that "::" appears at every position.
    const unsigned first = engine() % 8, count = engine() % (9 - first);
    for (unsigned g = first; g < first + count; ++g) n[2 * g] = n[2 * g + 1] = 0;
    if (i % 5 == 0) {
      std::memset(n, 0, 10);
      n[10] = n[11] = 0xFF;
    }
    texts.push_back(inet_ntop(AF_INET6, n, text, sizeof text));
    unsigned int g[8];
    for (int k = 0; k < 8; ++k) g[k] = static_cast<unsigned int>(n[2 * k] << 8 | n[2 * k + 1]);
    const char* full = i % 2 ? "%X:%X:%X:%X:%X:%X:%X:%X" : "%04x:%04x:%04x:%04x:%04x:%04x:%04x:%x";
    std::snprintf(text, sizeof text, full, g[0], g[1], g[2], g[3], g[4], g[5], g[6], g[7]);
    texts.push_back(text);
    std::snprintf(text, sizeof text, "%x:%x:%x:%x:%x:%x:%u.%u.%u.%u", g[0], g[1], g[2], g[3], g[4], g[5], n[12], n[13],
                  n[14], n[15]);
    texts.push_back(text);
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", n[12], n[13], n[14], n[15]);
    texts.push_back(text);
  }
  for (const char* t : {"::", "::1", "1::", "::1.2.3.4", "1::1.2.3.4", "1:2::3:4:5.6.7.8", "::ffff:10.0.0.1", "fe80::1",
                        "2001:db8::1", "1:2:3:4:5:6:7::", "::2:3:4:5:6:7:8"})
    texts.push_back(t);
  return texts;
}

TEST(IPAddressTest, WellFormedTextGivesTheSystemsBytesReversed) {
  for (const std::string& text : generatedTexts()) {
    ASSERT_NE("unparsable", systemBytes(text)) << "generator made bad text: " << text;
    const IPAddress parsed(text);
    EXPECT_EQ(systemBytes(text), bytesOf(parsed)) << text;
    const bool nonZero = !parsed.isEmpty();  // in IPv4 form, the low four bytes
    EXPECT_EQ(nonZero && parsed.isIPv4(), IPAddress::isIPv4Address(text)) << text;
    EXPECT_EQ(nonZero && parsed.isIPv6(), IPAddress::isIPv6Address(text)) << text;
  }
}

TEST(IPAddressTest, IPv4FormAndMappedText) {
  const IPAddress a("1.2.3.4");
  EXPECT_EQ(4, a[0]);
  EXPECT_EQ(1, a[3]);
  EXPECT_EQ(0xFF, a[4]);
  EXPECT_EQ(0xFF, a[5]);
  EXPECT_TRUE(a.isIPv4());
  EXPECT_EQ(a, IPAddress("::ffff:1.2.3.4"));
  EXPECT_EQ(a, IPAddress(1, 2, 3, 4));
  EXPECT_EQ(a, IPAddress(0x01020304u));
  EXPECT_EQ(0x01020304u, a.ipv4address());
  EXPECT_EQ(0x01020304u, zq::qHash(a));
  EXPECT_TRUE(a == 0x01020304u);
  // The same low bytes outside IPv4 form are not that IPv4 value.
  EXPECT_FALSE(IPAddress("::1.2.3.4") == 0x01020304u);
  EXPECT_EQ(IPAddress(127, 0, 0, 1), IPAddress::LOCALHOST);

  // The zero object is empty but not of IPv4 form; in IPv4 form only the low four bytes count.
  EXPECT_TRUE(IPAddress().isEmpty() && IPAddress().isIPv6());
  EXPECT_TRUE(IPAddress(0u).isEmpty() && IPAddress(0u).isIPv4());
}

TEST(IPAddressTest, AwkwardTextFollowsTheParsersRules) {
  // A lone hex token fills from the top.
  const IPAddress abc("abc");
  EXPECT_EQ(0x0A, abc[15]);
  EXPECT_EQ(0xBC, abc[14]);
  EXPECT_TRUE(IPAddress::isIPv6Address("abc"));

  EXPECT_TRUE(IPAddress("hello").isEmpty());
  EXPECT_FALSE(IPAddress::isIPv6Address("hello"));
  EXPECT_FALSE(IPAddress::isIPv4Address("example.com"));
  // "1foo" reads as 1 and "com" as 0: the address 1.0 with its last octets untouched.
  EXPECT_TRUE(IPAddress::isIPv4Address("1foo.com"));
  EXPECT_EQ("1.0.0.0", IPAddress("1foo.com").toString());

  EXPECT_FALSE(IPAddress::isIPv6Address("1:2:::3"));    // second gap
  EXPECT_FALSE(IPAddress::isIPv4Address("1.2:3"));      // hex group behind a dotted octet
  EXPECT_FALSE(IPAddress::isIPv4Address("1.2.3.4.5"));  // fifth octet
  EXPECT_FALSE(IPAddress::isIPv6Address("1:2:3:4:5:6:7:8:9"));
  EXPECT_FALSE(IPAddress::isIPv6Address("1:2:3:4:5:6:7:1.2.3.4"));  // no room for the octets
  EXPECT_TRUE(IPAddress::isIPv4Address("300.1.1.1"));               // octets keep their low eight bits
  EXPECT_EQ("44.1.1.1", IPAddress("300.1.1.1").toString());
  EXPECT_FALSE(IPAddress::isIPv4Address(""));
  EXPECT_FALSE(IPAddress::isIPv4Address("0.0.0.0"));
  EXPECT_TRUE(IPAddress("0.0.0.0").isEmpty());
  EXPECT_TRUE(IPAddress(static_cast<const char*>(nullptr)).isEmpty());
}

TEST(IPAddressTest, ShortDottedTextKeepsUnreachedOctets) {
  // Only an object in use shows it; IPPort parses into the address it already holds.
  zq::IPPort port(IPAddress(9, 8, 7, 6), 80);
  port.setAddress("1.2.3", 0);
  EXPECT_EQ("1.2.3.6", port.getIP().toString());
  port.setAddress("5", 0);  // a lone token reaching the end is hexadecimal
  EXPECT_EQ(0x05, port.getIP()[14]);
  EXPECT_TRUE(port.getIP().isIPv6());
}

// Token values are strtol's: white space, signs, "0x", saturation.
TEST(IPAddressTest, TokenValuesAreStrtolsReading) {
  std::mt19937 engine(3);
  const std::string alphabet = " \t+-0xX19afAFg";
  for (int i = 0; i < 3000; ++i) {
    std::string token(engine() % 24, ' ');
    for (char& c : token) c = alphabet[engine() % alphabet.size()];
    if (i % 7 == 0) token = "-" + std::string(engine() % 30, 'f');
    if (i % 7 == 1) token = std::string(12 + engine() % 10, "9f"[i % 2]);  // around the overflow bound

    const unsigned long hex = static_cast<unsigned long>(std::strtol(token.c_str(), nullptr, 16));
    const IPAddress h(token);
    if (token.empty()) {
      EXPECT_TRUE(h.isEmpty());
    } else {
      EXPECT_EQ(static_cast<unsigned char>(hex >> 8), h[15]) << '"' << token << '"';
      EXPECT_EQ(static_cast<unsigned char>(hex), h[14]) << '"' << token << '"';
    }
    const long dec = std::strtol(token.c_str(), nullptr, 10);
    EXPECT_EQ(static_cast<unsigned char>(dec), IPAddress("1.2.3." + token)[0]) << '"' << token << '"';
  }
}

TEST(IPAddressTest, TextForms) {
  EXPECT_EQ("2001: db8:   0:   0:   0:   0:   0:   1", IPAddress("2001:db8::1").toString());
  EXPECT_EQ("   0:   0:   0:   0:   0:   0:   0:   0", IPAddress().toString());
  EXPECT_EQ("255.0.10.100", IPAddress(255, 0, 10, 100).toString());
  EXPECT_EQ("10.0.0.1", std::string(IPAddress(10, 0, 0, 1)));

  char buffer[64];
  EXPECT_EQ(9u, IPAddress(1, 22, 3, 44).toString(buffer, sizeof buffer));
  EXPECT_STREQ("1.22.3.44", buffer);
  EXPECT_EQ(39u, IPAddress("ffff::").toString(buffer, 40));
  EXPECT_STREQ("ffff:   0:   0:   0:   0:   0:   0:   0", buffer);
  EXPECT_EQ(static_cast<size_t>(-1), IPAddress("ffff::").toString(buffer, 39));
  EXPECT_EQ(static_cast<size_t>(-1), IPAddress(1, 2, 3, 4).toString(buffer, 4));
  EXPECT_STREQ("1.2", buffer);
}

TEST(IPAddressTest, StreamForms) {
  std::ostringstream v4;
  v4 << std::hex << IPAddress(10, 11, 200, 1);
  EXPECT_EQ("a.b.c8.1", v4.str());

  // IPv6 sets the fill, leads with 2048 and 128, and prints groups in the present base.
  std::ostringstream dec;
  dec << IPAddress("2001:db8::1");
  EXPECT_EQ("20481288193:3512:0:0:0:0:0:1", dec.str());
  EXPECT_EQ('0', dec.fill());
  std::ostringstream hex;
  hex << std::hex << IPAddress("2001:db8::1");
  EXPECT_EQ("0800802001:db8:0:0:0:0:0:1", hex.str());

  std::wostringstream wide;
  wide << IPAddress(192, 168, 0, 1) << L' ' << IPAddress("::1");
  EXPECT_EQ(L"192.168.0.1 20481280:0:0:0:0:0:0:1", wide.str());
}

TEST(IPAddressTest, RangesByLeadingOctets) {
  const struct {
    const char* text;
    IPAddress::Range range;
  } cases[] = {
      {"0.1.2.3", IPAddress::RANGE_THIS_NETWORK},      {"10.255.0.1", IPAddress::RANGE_PRIVATE},
      {"127.5.5.5", IPAddress::RANGE_LOOPBACK},        {"169.254.1.1", IPAddress::RANGE_LINK_LOCAL},
      {"169.253.1.1", IPAddress::RANGE_GLOBAL},        {"172.15.0.1", IPAddress::RANGE_GLOBAL},
      {"172.16.0.1", IPAddress::RANGE_PRIVATE},        {"172.32.0.1", IPAddress::RANGE_PRIVATE},
      {"172.33.0.1", IPAddress::RANGE_GLOBAL},         {"192.168.9.9", IPAddress::RANGE_PRIVATE},
      {"192.88.99.1", IPAddress::RANGE_RELAY_ANYCAST}, {"192.88.98.1", IPAddress::RANGE_GLOBAL},
      {"198.17.0.1", IPAddress::RANGE_GLOBAL},         {"198.18.0.1", IPAddress::RANGE_BENCHMARK},
      {"198.19.0.1", IPAddress::RANGE_BENCHMARK},      {"198.20.0.1", IPAddress::RANGE_GLOBAL},
      {"223.255.255.255", IPAddress::RANGE_GLOBAL},    {"224.0.0.1", IPAddress::RANGE_MULTICAST},
      {"239.1.1.1", IPAddress::RANGE_MULTICAST},       {"240.0.0.1", IPAddress::RANGE_RESERVED},
      {"255.255.255.255", IPAddress::RANGE_RESERVED},  {"hello", IPAddress::RANGE_INVALID},
  };
  for (const auto& c : cases) EXPECT_EQ(c.range, IPAddress::ipv4AddressRange(c.text)) << c.text;
  // Only the octets count, not the form.
  EXPECT_EQ(IPAddress::RANGE_PRIVATE, IPAddress("::10.0.0.1").ipv4AddressRange());
}

TEST(IPAddressTest, OrderFromTheLastOctetAndArithmeticOnIt) {
  EXPECT_LT(IPAddress(11, 0, 0, 1), IPAddress(10, 0, 0, 2));
  EXPECT_GT(IPAddress(10, 0, 0, 2), IPAddress(11, 0, 0, 1));

  IPAddress a(10, 0, 0, 255);
  EXPECT_EQ(IPAddress(10, 0, 0, 0), a + 1);
  EXPECT_EQ(IPAddress(10, 0, 0, 0), a + 257);  // the low eight bits of the step count
  EXPECT_EQ(IPAddress(10, 0, 0, 254), a - 1);
  EXPECT_EQ(IPAddress(10, 0, 0, 255), a++);
  EXPECT_EQ(IPAddress(10, 0, 0, 0), a);
  EXPECT_EQ(IPAddress(10, 0, 0, 0), a--);
  EXPECT_EQ(IPAddress(10, 0, 0, 0), ++a);
}

TEST(IPAddressTest, BytesAndSocketAddresses) {
  const unsigned char raw[20] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20};
  const IPAddress all(raw, sizeof raw);
  EXPECT_EQ(16, all[15]);
  EXPECT_EQ(16, all.byteAt(99));  // clamped to the last byte
  const IPAddress three(raw, 3);
  EXPECT_EQ(3, three[2]);
  EXPECT_EQ(0, three[3]);
  unsigned char out[20] = {};
  EXPECT_EQ(16u, all.getBytes(out, sizeof out));
  EXPECT_EQ(0, std::memcmp(raw, out, 16));
  EXPECT_EQ(2u, all.getBytes(out, 2));

  sockaddr_in v4{};
  v4.sin_family = AF_INET;
  inet_pton(AF_INET, "192.168.1.20", &v4.sin_addr);
  EXPECT_EQ(IPAddress(192, 168, 1, 20), IPAddress(&v4));
  EXPECT_EQ(IPAddress(192, 168, 1, 20), IPAddress(reinterpret_cast<sockaddr*>(&v4)));

  // IPv6 socket addresses are copied in network order, unlike parsed text.
  sockaddr_in6 v6{};
  v6.sin6_family = AF_INET6;
  inet_pton(AF_INET6, "2001:db8::1", &v6.sin6_addr);
  const IPAddress fromSocket(&v6);
  EXPECT_EQ(0x20, fromSocket[0]);
  EXPECT_EQ(0x01, fromSocket[15]);
  EXPECT_NE(IPAddress("2001:db8::1"), fromSocket);
  EXPECT_EQ(fromSocket, IPAddress(reinterpret_cast<sockaddr*>(&v6)));

  sockaddr other{};
  other.sa_family = AF_UNIX;
  EXPECT_EQ(IPAddress(), IPAddress(&other));
  EXPECT_EQ(IPAddress(), IPAddress(static_cast<sockaddr*>(nullptr)));
}

TEST(IPAddressTest, BroadcastAndLocalSubnet) {
  EXPECT_EQ(IPAddress(192, 168, 1, 255),
            IPAddress::broadcastAddress(IPAddress(192, 168, 1, 20), IPAddress(255, 255, 255, 0)));
  EXPECT_EQ(IPAddress(10, 63, 255, 255),
            IPAddress::broadcastAddress(IPAddress(10, 32, 1, 2), IPAddress(255, 224, 0, 0)));

  const std::list<IPAddress> addresses = {IPAddress(0, 0, 0, 0), IPAddress(192, 168, 1, 20), IPAddress(10, 0, 0, 1)};
  const std::list<IPAddress> netmasks = {IPAddress(0, 0, 0, 0), IPAddress(255, 255, 255, 0), IPAddress(0, 0, 0, 0)};
  EXPECT_TRUE(IPAddress(192, 168, 1, 99).isInLocalSubnet(addresses, netmasks));
  EXPECT_FALSE(IPAddress(192, 168, 2, 99).isInLocalSubnet(addresses, netmasks));
  // A zero mask passes its pair over, rather than matching everything.
  EXPECT_FALSE(IPAddress(10, 0, 0, 1).isInLocalSubnet(addresses, netmasks));
  EXPECT_FALSE(IPAddress(8, 8, 8, 8).isInLocalSubnet(addresses, netmasks));
  EXPECT_TRUE(IPAddress::LOCALHOST.isInLocalSubnet({}, {}));
  EXPECT_FALSE(IPAddress(127, 0, 0, 2).isInLocalSubnet({}, {}));
  EXPECT_FALSE(IPAddress().isInLocalSubnet(addresses, netmasks));
  // Unequal lists are walked until the shorter ends.
  EXPECT_FALSE(IPAddress(192, 168, 1, 99).isInLocalSubnet(addresses, {IPAddress(0, 0, 0, 0)}));
}

TEST(IPAddressTest, LocalAdaptersCorrespond) {
  const std::list<IPAddress> addresses = IPAddress::enumLocalAddresses();
  const std::list<IPAddress> netmasks = IPAddress::enumLocalNetmasks();
  ASSERT_EQ(addresses.size(), netmasks.size());
  auto m = netmasks.begin();
  for (const IPAddress& a : addresses) {
    EXPECT_TRUE(a.isIPv4()) << a.toString();
    EXPECT_NE(IPAddress::RANGE_LOOPBACK, a.ipv4AddressRange()) << "loopback is no adapter";
    if (!a.isEmpty() && !m->isEmpty()) {
      EXPECT_TRUE(a.isInLocalSubnet()) << a.toString();
    }
    ++m;
  }
  EXPECT_LE(IPAddress::enumLocalBroadcastAddresses().size(), addresses.size());
  EXPECT_TRUE(IPAddress::LOCALHOST.isInLocalSubnet());
  EXPECT_FALSE(IPAddress().isInLocalSubnet());
}

// Any text parses to some value: no crash, no exception, no read outside the text.
TEST(IPAddressTest, FuzzedTextNeverFaults) {
  zq::test::RandomText random(
      {"192.168.100.200", "2001:db8:85a3::8a2e:370:7334", "::ffff:1.2.3.4", "fe80::1", "1:2:3:4:5:6:7:8"},
      "0123456789abcdefABCDEFx:.  -+[]", 11);
  for (int i = 0; i < 200000; ++i) {
    const std::string text = random.next();
    const IPAddress a(text);
    const std::string printed = a.toString();
    ASSERT_LE(printed.size(), 39u) << text;
    EXPECT_EQ(IPAddress::isIPv4Address(text) || IPAddress::isIPv6Address(text),
              IPAddress::ipv4AddressRange(text) != IPAddress::RANGE_INVALID)
        << text;
  }
}

}  // namespace
