#include <zq/Net/IPPort.h>
#include <zq/values/Hash.h>

#include <gtest/gtest.h>

#include <sstream>

namespace {

using zq::IPAddress;
using zq::IPPort;

TEST(IPPortTest, SetAddressReadsHostAndPort) {
  const struct {
    const char* text;
    unsigned short port;
    IPAddress ip;
    const char* dns;
    unsigned short expectedPort;
  } cases[] = {
      {"192.168.0.1:8080", 0, IPAddress(192, 168, 0, 1), "", 8080},
      {"192.168.0.1:8080", 554, IPAddress(192, 168, 0, 1), "", 554},  // an explicit port beats the text's
      {"[fe80::1]:554", 0, IPAddress("fe80::1"), "", 554},
      {"device.local:8080", 0, IPAddress(), "device.local", 8080},
      {"fe80::1", 0, IPAddress("fe80:"), "", 1},         // without brackets the last colon is the port's
      {"1foo.com", 0, IPAddress(1, 0, 0, 0), "", 8000},  // what the address parser makes non-zero is no name
      {"camera", 0, IPAddress("ca"), "", 8000},
      {"[fe80::1]", 0, IPAddress("fe80::1"), "", 8000},  // no port in the text: the object's stays
      {"printer", 0, IPAddress(), "printer", 8000},
  };
  for (const auto& c : cases) {
    IPPort port("other.host", 8000);
    port.setAddress(c.text, c.port);
    EXPECT_EQ(c.ip, port.getIP()) << c.text;
    EXPECT_EQ(c.dns, port.getDNS()) << c.text;
    EXPECT_EQ(c.expectedPort, port.getPort()) << c.text;
    EXPECT_EQ(IPPort(c.text, c.port).getIP(), port.getIP()) << "the constructor reads alike: " << c.text;
  }
}

TEST(IPPortTest, DefaultPortAndEmptiness) {
  IPPort fresh;
  EXPECT_FALSE(fresh.setDefaultPort(554)) << "the default object already has port 80";
  fresh.setPort(0);
  EXPECT_TRUE(fresh.setDefaultPort(554));
  EXPECT_EQ(554, fresh.getPort());

  EXPECT_TRUE(IPPort::EMPTY.isEmpty() && IPPort::EMPTY.getPort() == 80);
  EXPECT_FALSE(IPPort("host", 0).isEmpty());
  EXPECT_TRUE(IPPort(static_cast<const char*>(nullptr), 5).isEmpty());
}

TEST(IPPortTest, OrderNamesFirstThenLow32BitsThenPort) {
  const char* ascending[] = {"a.b:80", "a.b:81", "a.bb:80", "a.c:80", "1.2.3.4:80", "1.2.3.4:81", "1.2.3.5:80"};
  for (size_t i = 1; i < sizeof ascending / sizeof *ascending; ++i) {
    EXPECT_LT(IPPort(ascending[i - 1], 0), IPPort(ascending[i], 0)) << ascending[i - 1];
    EXPECT_GT(IPPort(ascending[i], 0), IPPort(ascending[i - 1], 0)) << ascending[i];
  }
  EXPECT_EQ(IPPort("[2001:db8::1]", 80), IPPort("[fe80::1]", 80)) << "IPv6 compares by the low 32 bits";
  EXPECT_NE(IPPort("[2001:db8::1]", 80), IPPort("[fe80::2]", 80));
  // The unsigned difference taken as signed: far-apart addresses compare by wrap-around.
  EXPECT_GT(IPPort("1.0.0.0", 80).compare(IPPort("200.0.0.0", 80)), 0);
}

TEST(IPPortTest, Hash) {
  const std::string name = "device.local";
  EXPECT_EQ(zq::Hash::hash(reinterpret_cast<const unsigned char*>(name.data()), name.size()) ^ 8080u,
            IPPort(name, 8080).hash());
  EXPECT_EQ(0x0A000001u ^ 443u, IPPort("10.0.0.1", 443).hash());
}

TEST(IPPortTest, PrintedForms) {
  EXPECT_EQ("192.168.0.1512:80", IPPort("192.168.0.1", 80).toString(true));
  EXPECT_EQ("192.168.0.1", IPPort("192.168.0.1", 80).toString(false));
  EXPECT_EQ("device.local512:8080", std::string(IPPort("device.local", 8080)));
  EXPECT_EQ("[20481288193:3512:0:0:0:0:0:1]512:554", IPPort("[2001:db8::1]", 554).toString(true));
  EXPECT_EQ("[20481280:0:0:0:0:0:0:0]", IPPort::EMPTY.toString(false)) << "a zero address counts as IPv6";
  EXPECT_EQ("10.0.0.1 10.0.0.1512:8080",
            IPPort("10.0.0.1", 80).toString(80) + " " + IPPort("10.0.0.1", 8080).toString(80));
  EXPECT_EQ("10.0.0.1", IPPort(IPAddress(10, 0, 0, 1), 0).toString(true)) << "port 0 is not printed";
  std::ostringstream os;
  IPPort("10.0.0.1", 7).print(os, false);
  EXPECT_EQ("10.0.0.1", os.str());

  // Read back as the parser decides, 512 and all: "1512" keeps its low eight bits.
  const IPPort back(IPPort("192.168.0.1", 80).toString(true), 0);
  EXPECT_EQ(80, back.getPort());
  EXPECT_EQ(IPAddress(192, 168, 0, 0xE8), back.getIP());
}

}  // namespace
