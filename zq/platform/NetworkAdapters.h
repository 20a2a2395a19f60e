// The machine's IPv4 adapter addresses, for IPAddress's local enumerations.
#pragma once

#include <vector>

namespace zq {
namespace platform {

struct AdapterAddress {
  unsigned int address;  // host order, first octet in the top byte
  unsigned int netmask;  // host order; 0 when the system reports none
};

// Each IPv4 address of each interface with its netmask, in the system's order. The loopback
// interface is not an adapter and is left out. Empty if the system can't enumerate.
std::vector<AdapterAddress> ipv4AdapterAddresses();

}  // namespace platform
}  // namespace zq
