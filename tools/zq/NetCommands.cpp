// Commands over the network values: parse, classify and print IP and MAC addresses.
#include "Command.h"

#include <zq/Net/IPAddress.h>
#include <zq/Net/MacAddress.h>

#include <iostream>
#include <list>
#include <memory>
#include <string>
#include <vector>

namespace {

const char* rangeName(zq::IPAddress::Range range) {
  switch (range) {
    case zq::IPAddress::RANGE_GLOBAL:
      return "global";
    case zq::IPAddress::RANGE_THIS_NETWORK:
      return "this-network";
    case zq::IPAddress::RANGE_PRIVATE:
      return "private";
    case zq::IPAddress::RANGE_LOOPBACK:
      return "loopback";
    case zq::IPAddress::RANGE_LINK_LOCAL:
      return "link-local";
    case zq::IPAddress::RANGE_RELAY_ANYCAST:
      return "relay-anycast";
    case zq::IPAddress::RANGE_BENCHMARK:
      return "benchmark";
    case zq::IPAddress::RANGE_MULTICAST:
      return "multicast";
    case zq::IPAddress::RANGE_RESERVED:
      return "reserved";
    case zq::IPAddress::RANGE_INVALID:
      break;
  }
  return "invalid";
}

// Without arguments: the machine's adapters. Exit status 1 if any text is no address.
int ipCommand(const std::vector<std::string>& args) {
  if (args.empty()) {
    const std::list<zq::IPAddress> addresses = zq::IPAddress::enumLocalAddresses();
    const std::list<zq::IPAddress> netmasks = zq::IPAddress::enumLocalNetmasks();
    auto m = netmasks.begin();
    for (auto a = addresses.begin(); a != addresses.end() && m != netmasks.end(); ++a, ++m) {
      std::cout << a->toString() << "  netmask " << m->toString() << "  broadcast "
                << zq::IPAddress::broadcastAddress(*a, *m).toString() << "\n";
    }
    return 0;
  }
  int status = 0;
  for (const std::string& text : args) {
    const zq::IPAddress address(text);
    std::cout << text << "\t";
    if (zq::IPAddress::isIPv4Address(text)) {
      std::cout << "ipv4 " << address.toString() << " " << rangeName(address.ipv4AddressRange())
                << (address.isInLocalSubnet() ? " local" : "") << "\n";
    } else if (zq::IPAddress::isIPv6Address(text)) {
      std::cout << "ipv6 " << address.toString() << "\n";
    } else {
      std::cout << "invalid\n";
      status = 1;
    }
  }
  return status;
}

int macCommand(const std::vector<std::string>& args) {
  int status = 0;
  for (const std::string& text : args) {
    std::cout << text << "\t";
    // fromString reports nothing; a scan that took all six fields gives one value from any start.
    zq::MacAddress fromZero;
    zq::MacAddress fromOnes(0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF);
    fromZero.fromString(text);
    fromOnes.fromString(text);
    if (fromZero == fromOnes) {
      std::cout << fromZero.toString() << "\n";
    } else {
      std::cout << (zq::MacAddress::isMacAddress(text) ? "invalid (fields longer than two digits)\n" : "invalid\n");
      status = 1;
    }
  }
  return status;
}

const bool registered = zqtool::registerCommands([](CLI::App& app) {
  auto addresses = std::make_shared<std::vector<std::string>>();
  zqtool::addCommand(app, "ip", "parse, classify and print IP addresses; none: list the local adapters", [addresses] {
    return ipCommand(*addresses);
  })->add_option("ADDRESS", *addresses, "IPv4 or IPv6 addresses");
  auto macs = std::make_shared<std::vector<std::string>>();
  zqtool::addCommand(app, "mac", "parse and print MAC addresses (00-1a-2b-3c-4d-5e)",
                     [macs] { return macCommand(*macs); })
      ->add_option("MAC", *macs, "MAC addresses, hex pairs between hyphens")
      ->required();
});

}  // namespace
