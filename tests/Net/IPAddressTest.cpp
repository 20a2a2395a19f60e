#include <zq/Net/IPAddress.h>
#include <zq/Net/IPPort.h>
#include <zq/Net/MacAddress.h>

#include "tests/support/RandomText.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>

namespace {

using zq::IPAddress;

// Hex of the bytes from the top down, which is inet_pton's order.
std::string topDown(const IPAddress& a) {
  std::string s;
  for (int i = 15; i >= 0; --i) s += {"0123456789abcdef"[a[i] >> 4], "0123456789abcdef"[a[i] & 15]};
  return s;
}

std::string systemTopDown(const std::string& text) {
  unsigned char n[16] = {};
  if (inet_pton(AF_INET6, text.c_str(), n) != 1) {
    if (inet_pton(AF_INET, text.c_str(), n + 12) != 1) return "unparsable";
    n[10] = n[11] = 0xFF;
  }
  std::reverse(n, n + 16);
  return topDown(IPAddress(n, 16));
}

// Random addresses with "::" at every position, the IPv4-mapped form among them: compressed,
// full with upper case or leading zeros, dotted, with a dotted tail.
TEST(IPAddressTest, WellFormedTextGivesTheSystemsBytesReversed) {
  std::vector<std::string> texts = {"::", "::1", "1::", "::1.2.3.4", "1:2::3:4:5.6.7.8", "::ffff:10.0.0.1"};
  std::mt19937 engine(7);
  char text[64];
  for (int i = 0; i < 400; ++i) {
    unsigned char n[16];
    for (unsigned char& b : n) b = static_cast<unsigned char>(engine());
    const unsigned first = engine() % 8;
    std::memset(n + std::size_t{2} * first, 0, 2 * (engine() % (9 - first)));
    if (i % 5 == 0) std::copy_n("\0\0\0\0\0\0\0\0\0\0\xff\xff", 12, n);
    texts.push_back(inet_ntop(AF_INET6, n, text, sizeof text));
    std::string full, head;
    for (int k = 0; k < 8; ++k) {
      std::snprintf(text, sizeof text, i % 2 ? "%X:" : "%04x:", n[std::size_t{2} * k] << 8 | n[std::size_t{2} * k + 1]);
      full += text;
      if (k < 6) head += text;
    }
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", n[12], n[13], n[14], n[15]);
    texts.insert(texts.end(), {full.substr(0, full.size() - 1), text, head + text});
  }
  for (const std::string& text : texts) {
    const IPAddress parsed(text);
    EXPECT_EQ(systemTopDown(text), topDown(parsed)) << text;
    EXPECT_EQ(!parsed.isEmpty() && parsed.isIPv4(), IPAddress::isIPv4Address(text)) << text;
    EXPECT_EQ(!parsed.isEmpty() && parsed.isIPv6(), IPAddress::isIPv6Address(text)) << text;
  }
}

TEST(IPAddressTest, AwkwardTextFollowsTheParsersRules) {
  // Neither form: no number, a second gap, a hex group behind an octet, too many groups or octets.
  for (const char* text : {"hello", "example.com", "1:2:::3", "1.2:3", "1.2.3.4.5", "1:2:3:4:5:6:7:8:9",
                           "1:2:3:4:5:6:7:1.2.3.4", "", "0.0.0.0"}) {
    EXPECT_FALSE(IPAddress::isIPv4Address(text) || IPAddress::isIPv6Address(text)) << text;
  }
  EXPECT_TRUE(IPAddress::isIPv6Address("abc"));
  EXPECT_EQ("0abc0000000000000000000000000000", topDown(IPAddress("abc"))) << "a lone token fills from the top";
  EXPECT_EQ("1.0.0.0", IPAddress("1foo.com").toString()) << "\"1foo\" reads as 1 and \"com\" as 0";
  EXPECT_EQ("44.1.1.1", IPAddress("300.1.1.1").toString());
  EXPECT_TRUE(IPAddress::isIPv4Address("1foo.com") && IPAddress::isIPv4Address("300.1.1.1"));
  EXPECT_TRUE(IPAddress("hello").isEmpty() && IPAddress(static_cast<const char*>(nullptr)).isEmpty());

  // A short dotted text keeps the octets it does not reach; IPPort parses into the address it holds.
  zq::IPPort port(IPAddress(9, 8, 7, 6), 80);
  port.setAddress("1.2.3", 0);
  EXPECT_EQ("1.2.3.6", port.getIP().toString());
  port.setAddress("5", 0);  // a lone token reaching the end is hexadecimal
  EXPECT_TRUE(port.getIP()[14] == 5 && port.getIP().isIPv6());
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
    const unsigned long hex = token.empty() ? 0 : static_cast<unsigned long>(std::strtol(token.c_str(), nullptr, 16));
    const IPAddress h(token);
    EXPECT_EQ(hex & 0xFFFF, static_cast<unsigned long>(h[15] << 8 | h[14])) << '"' << token << '"';
    EXPECT_EQ(static_cast<unsigned char>(std::strtol(token.c_str(), nullptr, 10)), IPAddress("1.2.3." + token)[0])
        << '"' << token << '"';
  }
}

TEST(IPAddressTest, PrintedForms) {
  EXPECT_EQ("2001: db8:   0:   0:   0:   0:   0:   1", IPAddress("2001:db8::1").toString());
  EXPECT_EQ("   0:   0:   0:   0:   0:   0:   0:   0", IPAddress().toString());
  EXPECT_EQ("255.0.10.100", std::string(IPAddress(255, 0, 10, 100)));

  char buffer[64];
  EXPECT_EQ(9u, IPAddress(1, 22, 3, 44).toString(buffer, sizeof buffer));
  EXPECT_STREQ("1.22.3.44", buffer);
  EXPECT_EQ(39u, IPAddress("ffff::").toString(buffer, 40));
  EXPECT_STREQ("ffff:   0:   0:   0:   0:   0:   0:   0", buffer);
  EXPECT_EQ(static_cast<size_t>(-1), IPAddress("ffff::").toString(buffer, 39));
  EXPECT_EQ(static_cast<size_t>(-1), IPAddress(1, 2, 3, 4).toString(buffer, 4));
  EXPECT_STREQ("1.2", buffer);

  // IPv6 sets the fill, leads with 2048 and 128, and prints groups in the present base.
  std::ostringstream hex;
  hex << std::hex << IPAddress("2001:db8::1") << ' ' << IPAddress(10, 11, 200, 1);
  EXPECT_EQ("0800802001:db8:0:0:0:0:0:1 a.b.c8.1", hex.str());
  EXPECT_EQ('0', hex.fill());
  std::wostringstream wide;
  wide << IPAddress(192, 168, 0, 1) << L' ' << IPAddress("::1");
  EXPECT_EQ(L"192.168.0.1 20481280:0:0:0:0:0:0:1", wide.str());
}

TEST(IPAddressTest, RangesByLeadingOctets) {
  using R = IPAddress::Range;
  const std::pair<R, std::vector<const char*>> cases[] = {
      // clang-format off
      {R::RANGE_THIS_NETWORK, {"0.1.2.3"}}, {R::RANGE_LOOPBACK, {"127.5.5.5"}}, {R::RANGE_LINK_LOCAL, {"169.254.1.1"}},
      {R::RANGE_PRIVATE, {"10.255.0.1", "172.16.0.1", "172.32.0.1", "192.168.9.9"}}, {R::RANGE_INVALID, {"hello"}},
      {R::RANGE_RELAY_ANYCAST, {"192.88.99.1"}}, {R::RANGE_BENCHMARK, {"198.18.0.1", "198.19.0.1"}},
      {R::RANGE_MULTICAST, {"224.0.0.1", "239.1.1.1"}}, {R::RANGE_RESERVED, {"240.0.0.1", "255.255.255.255"}},
      {R::RANGE_GLOBAL, {"169.253.1.1", "172.15.0.1", "172.33.0.1", "192.88.98.1", "198.17.0.1", "198.20.0.1",
                         "223.255.255.255"}},
      // clang-format on
  };
  for (const auto& c : cases) {
    for (const char* text : c.second) EXPECT_EQ(c.first, IPAddress::ipv4AddressRange(text)) << text;
  }
  EXPECT_EQ(R::RANGE_PRIVATE, IPAddress("::10.0.0.1").ipv4AddressRange()) << "the octets count, not the form";
}

TEST(IPAddressTest, ConstructionComparisonAndArithmetic) {
  const IPAddress a(1, 2, 3, 4);
  EXPECT_EQ(a, IPAddress(0x01020304u));
  EXPECT_TRUE(a == 0x01020304u);
  EXPECT_FALSE(IPAddress("::1.2.3.4") == 0x01020304u) << "same low bytes, but not in IPv4 form";
  // The zero object is empty but not of IPv4 form; in IPv4 form only the low four bytes count.
  EXPECT_TRUE(IPAddress().isEmpty() && IPAddress().isIPv6());
  EXPECT_TRUE(IPAddress(0u).isEmpty() && IPAddress(0u).isIPv4());

  EXPECT_LT(IPAddress(11, 0, 0, 1), IPAddress(10, 0, 0, 2)) << "ordered from the last octet";
  EXPECT_GT(IPAddress(10, 0, 0, 2), IPAddress(11, 0, 0, 1));
  IPAddress b(10, 0, 0, 255);
  EXPECT_EQ(IPAddress(10, 0, 0, 0), b + 257);  // the low eight bits of the step count
  EXPECT_EQ(IPAddress(10, 0, 0, 254), b - 1);
  EXPECT_EQ(IPAddress(10, 0, 0, 255), b++);
  EXPECT_EQ(IPAddress(10, 0, 0, 0), b--);
  EXPECT_EQ(IPAddress(10, 0, 0, 0), ++b);
}

TEST(IPAddressTest, BytesAndSocketAddresses) {
  const unsigned char raw[20] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20};
  unsigned char out[20] = {};
  EXPECT_EQ(16u, IPAddress(raw, sizeof raw).getBytes(out, sizeof out));
  EXPECT_EQ(0, std::memcmp(raw, out, 16));
  EXPECT_EQ(16, IPAddress(raw, sizeof raw).byteAt(99)) << "clamped to the last byte";
  EXPECT_EQ(0, IPAddress(raw, 3)[3]);

  sockaddr_in v4{};
  v4.sin_family = AF_INET;
  inet_pton(AF_INET, "192.168.1.20", &v4.sin_addr);
  EXPECT_EQ(IPAddress(192, 168, 1, 20), IPAddress(reinterpret_cast<sockaddr*>(&v4)));
  // IPv6 socket addresses are copied in network order, unlike parsed text.
  sockaddr_in6 v6{};
  v6.sin6_family = AF_INET6;
  inet_pton(AF_INET6, "2001:db8::1", &v6.sin6_addr);
  EXPECT_EQ("010000000000000000000000b80d0120", topDown(IPAddress(&v6)));
  EXPECT_EQ(IPAddress(&v6), IPAddress(reinterpret_cast<sockaddr*>(&v6)));
  sockaddr other{};
  other.sa_family = AF_UNIX;
  EXPECT_TRUE(IPAddress(&other).isEmpty() && IPAddress(static_cast<sockaddr*>(nullptr)).isEmpty());
}

TEST(IPAddressTest, BroadcastAndLocalSubnet) {
  EXPECT_EQ(IPAddress(10, 63, 255, 255),
            IPAddress::broadcastAddress(IPAddress(10, 32, 1, 2), IPAddress(255, 224, 0, 0)));

  const std::list<IPAddress> addresses = {IPAddress(0, 0, 0, 0), IPAddress(192, 168, 1, 20), IPAddress(10, 0, 0, 1)};
  const std::list<IPAddress> netmasks = {IPAddress(0, 0, 0, 0), IPAddress(255, 255, 255, 0), IPAddress(0, 0, 0, 0)};
  EXPECT_TRUE(IPAddress(192, 168, 1, 99).isInLocalSubnet(addresses, netmasks));
  EXPECT_FALSE(IPAddress(192, 168, 2, 99).isInLocalSubnet(addresses, netmasks));
  EXPECT_FALSE(IPAddress(10, 0, 0, 1).isInLocalSubnet(addresses, netmasks)) << "a zero mask passes its pair over";
  EXPECT_FALSE(IPAddress().isInLocalSubnet(addresses, netmasks));
  EXPECT_TRUE(IPAddress::LOCALHOST.isInLocalSubnet({}, {}));
  EXPECT_FALSE(IPAddress(127, 0, 0, 2).isInLocalSubnet({}, {}));
  // Unequal lists are walked until the shorter ends.
  EXPECT_FALSE(IPAddress(192, 168, 1, 99).isInLocalSubnet(addresses, {IPAddress(0, 0, 0, 0)}));

  // The machine's own adapters: IPv4, no loopback, one mask per address.
  const std::list<IPAddress> local = IPAddress::enumLocalAddresses();
  const std::list<IPAddress> masks = IPAddress::enumLocalNetmasks();
  ASSERT_EQ(local.size(), masks.size());
  auto mask = masks.begin();
  for (const IPAddress& a : local) {
    const bool noMask = (mask++)->isEmpty();
    EXPECT_TRUE(a.isIPv4() && a.ipv4AddressRange() != IPAddress::RANGE_LOOPBACK) << a.toString();
    EXPECT_TRUE(a.isEmpty() || noMask || a.isInLocalSubnet()) << a.toString();
  }
  EXPECT_LE(IPAddress::enumLocalBroadcastAddresses().size(), local.size());
  EXPECT_TRUE(IPAddress::LOCALHOST.isInLocalSubnet());
}

// Any text parses to some value through every address parser: no crash, no exception, no read
// outside the text (run under the sanitizers).
TEST(NetTextTest, FuzzedTextNeverFaults) {
  zq::test::RandomText random({"192.168.100.200", "2001:db8:85a3::8a2e:370:7334", "::ffff:1.2.3.4", "[fe80::1]:554",
                               "device.local:8080", "00-1a-2b-3c-4d-5e", "0-1-2-3-4-5", "123-1-2-3-4-5"},
                              "0123456789abcdefABCDEFxX:.  -+[]", 11);
  zq::IPPort reused;
  zq::MacAddress mac;
  for (int i = 0; i < 200000; ++i) {
    const std::string text = random.next();
    ASSERT_LE(IPAddress(text).toString().size(), 39u) << text;
    EXPECT_EQ(IPAddress::isIPv4Address(text) || IPAddress::isIPv6Address(text),
              IPAddress::ipv4AddressRange(text) != IPAddress::RANGE_INVALID)
        << text;
    reused.setAddress(text, static_cast<unsigned short>(i % 3 == 0 ? 0 : i));
    ASSERT_FALSE(reused.hasIP() && reused.hasDNS()) << text;
    (void)zq::IPPort(text, 0).toString(true);
    // Whatever the strict MAC scan takes, the loose test takes too.
    const zq::MacAddress before = mac;
    mac.fromString(text);
    EXPECT_TRUE(mac == before || zq::MacAddress::isMacAddress(text)) << text;
    mac.fromString(std::wstring(text.begin(), text.end()));
  }
}

}  // namespace
