// The endpoint parser on any text with any default port: an endpoint holds an address or a name,
// never both; a name is printed as it was read; comparison is a consistent order.
#include <zq/Net/IPPort.h>

#include "FuzzSupport.h"

#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const unsigned short port =
      static_cast<unsigned short>(zq::fuzz::takeByte(data, size) << 8 | zq::fuzz::takeByte(data, size));
  const std::string text(reinterpret_cast<const char*>(data), size);

  const zq::IPPort endpoint(text, port);
  ZQ_FUZZ_CHECK(!(endpoint.hasIP() && endpoint.hasDNS()));
  if (port != 0) ZQ_FUZZ_CHECK(endpoint.getPort() == port);
  if (endpoint.hasDNS()) ZQ_FUZZ_CHECK(endpoint.toString(false) == endpoint.getDNS());
  if (endpoint.hasIP() && endpoint.getIP().isIPv4())
    ZQ_FUZZ_CHECK(endpoint.toString(false) == endpoint.getIP().toString());
  ZQ_FUZZ_CHECK(zq::IPPort(text.c_str(), port) == zq::IPPort(text.substr(0, text.find('\0')), port));

  std::ostringstream printed;
  endpoint.print(printed, true);
  ZQ_FUZZ_CHECK(printed.str() == endpoint.toString(true));
  (void)endpoint.toString(static_cast<int>(port));
  (void)endpoint.hash();

  const zq::IPPort copy(endpoint);
  ZQ_FUZZ_CHECK(copy == endpoint && !(copy < endpoint) && copy.compare(endpoint) == 0);
  const zq::IPPort other(text + "x", 0);
  ZQ_FUZZ_CHECK((endpoint.compare(other) == 0) == (other.compare(endpoint) == 0));
  return 0;
}
