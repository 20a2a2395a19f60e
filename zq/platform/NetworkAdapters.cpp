#include <zq/platform/NetworkAdapters.h>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace zq {
namespace platform {

namespace {
unsigned int hostOrder(const sockaddr* sa) {
  if (sa == nullptr || sa->sa_family != AF_INET) return 0;
  return ntohl(reinterpret_cast<const sockaddr_in*>(sa)->sin_addr.s_addr);
}
}  // namespace

std::vector<AdapterAddress> ipv4AdapterAddresses() {
  std::vector<AdapterAddress> result;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return result;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
    // The reference adapter list has no loopback; localhost is tested for separately.
    if ((entry->ifa_flags & IFF_LOOPBACK) != 0) continue;
    result.push_back({hostOrder(entry->ifa_addr), hostOrder(entry->ifa_netmask)});
  }
  freeifaddrs(list);
  return result;
}

}  // namespace platform
}  // namespace zq
