#include <zq/Net/IPPort.h>
#include <zq/values/Hash.h>

#include "tests/support/RandomText.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using zq::IPAddress;
using zq::IPPort;

TEST(IPPortTest, PortInTextVersusArgument) {
  const IPPort inText("192.168.0.1:8080", 0);
  EXPECT_EQ(IPAddress(192, 168, 0, 1), inText.getIP());
  EXPECT_EQ(8080, inText.getPort());
  EXPECT_FALSE(inText.hasDNS());

  EXPECT_EQ(554, IPPort("192.168.0.1:8080", 554).getPort()) << "an explicit port beats the text's";

  const IPPort bracketed("[fe80::1]:554", 0);
  EXPECT_EQ(IPAddress("fe80::1"), bracketed.getIP());
  EXPECT_EQ(554, bracketed.getPort());

  const IPPort name("device.local:8080", 0);
  EXPECT_EQ("device.local", name.getDNS());
  EXPECT_TRUE(name.getIP().isEmpty());
  EXPECT_EQ(8080, name.getPort());

  // Without brackets the last colon is the port's.
  const IPPort bare("fe80::1", 0);
  EXPECT_EQ(IPAddress("fe80:"), bare.getIP());
  EXPECT_EQ(1, bare.getPort());
}

TEST(IPPortTest, TextWithoutPortKeepsTheObjectsPort) {
  IPPort port(IPAddress(1, 2, 3, 4), 8000);
  port.setAddress("[fe80::1]", 0);
  EXPECT_EQ(8000, port.getPort());
  EXPECT_EQ(IPAddress("fe80::1"), port.getIP());
  port.setAddress("printer", 0);
  EXPECT_EQ(8000, port.getPort());
  EXPECT_EQ("printer", port.getDNS());
  EXPECT_FALSE(port.hasIP());
  // Back to an address: the name goes.
  port.setAddress("10.1.1.1:21", 0);
  EXPECT_FALSE(port.hasDNS());
  EXPECT_EQ(21, port.getPort());
  // Text the address parser makes non-zero is an address, even if meant as a name.
  port.setAddress("1foo.com", 0);
  EXPECT_TRUE(port.hasIP());
  EXPECT_FALSE(port.hasDNS());
  port.setAddress("camera", 0);  // "ca" reads as a hexadecimal group
  EXPECT_EQ(0xCA, port.getIP()[14]);
  EXPECT_FALSE(port.hasDNS());
}

TEST(IPPortTest, DefaultPortAndEmptiness) {
  IPPort fresh;
  EXPECT_EQ(80, fresh.getPort());
  EXPECT_FALSE(fresh.setDefaultPort(554)) << "the default object already has port 80";
  EXPECT_EQ(80, fresh.getPort());
  fresh.setPort(0);
  EXPECT_TRUE(fresh.setDefaultPort(0));
  EXPECT_EQ(0, fresh.getPort());
  EXPECT_TRUE(fresh.setDefaultPort(554));
  EXPECT_EQ(554, fresh.getPort());

  EXPECT_TRUE(IPPort::EMPTY.isEmpty());
  EXPECT_EQ(80, IPPort::EMPTY.getPort());
  EXPECT_FALSE(IPPort("host", 0).isEmpty());
  EXPECT_TRUE(IPPort(static_cast<const char*>(nullptr), 5).isEmpty());
}

TEST(IPPortTest, OrderNamesFirstThenLow32BitsThenPort) {
  EXPECT_LT(IPPort("a.b", 80), IPPort("1.2.3.4", 80));
  EXPECT_GT(IPPort("1.2.3.4", 80), IPPort("a.b", 80));
  EXPECT_LT(IPPort("a.b", 80), IPPort("a.c", 80));
  EXPECT_LT(IPPort("a.b", 80), IPPort("a.bb", 80));
  EXPECT_LT(IPPort("a.b", 80), IPPort("a.b", 81));
  EXPECT_LT(IPPort("1.2.3.4", 80), IPPort("1.2.3.5", 80));
  EXPECT_LT(IPPort("1.2.3.4", 80), IPPort("1.2.3.4", 81));
  EXPECT_EQ(IPPort("[2001:db8::1]", 80), IPPort("[fe80::1]", 80)) << "IPv6 compares by the low 32 bits";
  EXPECT_NE(IPPort("[2001:db8::1]", 80), IPPort("[fe80::2]", 80));
  // The unsigned difference taken as signed: far-apart addresses compare by wrap-around.
  EXPECT_GT(IPPort("1.0.0.0", 80).compare(IPPort("200.0.0.0", 80)), 0);
}

TEST(IPPortTest, Hash) {
  const std::string name = "device.local";
  const unsigned int nameHash = zq::Hash::hash(reinterpret_cast<const unsigned char*>(name.data()), name.size());
  EXPECT_EQ(nameHash ^ 8080u, IPPort(name, 8080).hash());
  EXPECT_EQ(0x0A000001u ^ 443u, IPPort("10.0.0.1", 443).hash());
}

TEST(IPPortTest, PrintedForms) {
  EXPECT_EQ("192.168.0.1512:80", IPPort("192.168.0.1", 80).toString(true));
  EXPECT_EQ("192.168.0.1", IPPort("192.168.0.1", 80).toString(false));
  EXPECT_EQ("device.local512:8080", std::string(IPPort("device.local", 8080)));
  EXPECT_EQ("[20481288193:3512:0:0:0:0:0:1]512:554", IPPort("[2001:db8::1]", 554).toString(true));

  IPPort noPort("10.0.0.1", 0);
  noPort.setPort(0);
  EXPECT_EQ("10.0.0.1", noPort.toString(true));
  EXPECT_EQ("10.0.0.1", std::string(noPort));
  EXPECT_EQ("10.0.0.1", IPPort("10.0.0.1", 80).toString(80));
  EXPECT_EQ("10.0.0.1512:8080", IPPort("10.0.0.1", 8080).toString(80));
  // Neither name nor address: a zero address counts as IPv6.
  EXPECT_EQ("[20481280:0:0:0:0:0:0:0]", IPPort::EMPTY.toString(false));

  std::ostringstream os;
  IPPort("10.0.0.1", 7).print(os, false);
  EXPECT_EQ("10.0.0.1", os.str());
}

// The printed form is read back as the parser decides, 512 and all.
TEST(IPPortTest, PrintedFormReadsBackAsTheParserDecides) {
  const IPPort back(IPPort("192.168.0.1", 80).toString(true), 0);
  EXPECT_EQ(80, back.getPort());
  EXPECT_EQ(IPAddress(192, 168, 0, 0xE8), back.getIP()) << "1512 keeps its low eight bits";
}

TEST(IPPortTest, FuzzedTextNeverFaults) {
  zq::test::RandomText random({"192.168.0.1:8080", "[fe80::1]:554", "device.local:8080", "[::ffff:1.2.3.4]"},
                              "0123456789abcdef:.[]-x ", 13);
  IPPort reused;
  for (int i = 0; i < 150000; ++i) {
    const std::string text = random.next();
    reused.setAddress(text, static_cast<unsigned short>(i % 3 == 0 ? 0 : i));
    ASSERT_FALSE(reused.hasIP() && reused.hasDNS()) << text;
    (void)IPPort(text, 0).toString(true);
  }
}

}  // namespace
