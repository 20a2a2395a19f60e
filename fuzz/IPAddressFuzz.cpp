// The address parser on any text: what parses prints in a form that parses to the same address,
// the buffer printer agrees with the string printer, and any sixteen bytes survive printing.
#include <zq/Net/IPAddress.h>

#include "FuzzSupport.h"

#include <cstring>
#include <string>

namespace {

void checkPrintedForm(const zq::IPAddress& address) {
  const std::string text = address.toString();
  const zq::IPAddress again(text);
  ZQ_FUZZ_CHECK(again == address);
  char buffer[64];
  for (std::size_t size = 0; size <= text.size() + 1; ++size) {
    const std::size_t written = address.toString(buffer, size);
    if (size > text.size()) {
      ZQ_FUZZ_CHECK(written == text.size());
      ZQ_FUZZ_CHECK(text == buffer);
    } else {
      ZQ_FUZZ_CHECK(written == static_cast<std::size_t>(-1));
      if (size > 0) ZQ_FUZZ_CHECK(std::strlen(buffer) == size - 1 && text.compare(0, size - 1, buffer) == 0);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const zq::IPAddress parsed(text);
  // A string is read by its length, a pointer up to its terminator.
  if (text.find('\0') == std::string::npos) ZQ_FUZZ_CHECK(parsed == zq::IPAddress(text.c_str()));

  const bool v4 = zq::IPAddress::isIPv4Address(text);
  const bool v6 = zq::IPAddress::isIPv6Address(text);
  ZQ_FUZZ_CHECK(!(v4 && v6));
  if (v4) ZQ_FUZZ_CHECK(parsed.isIPv4() && !parsed.isEmpty());
  if (v6) ZQ_FUZZ_CHECK(parsed.isIPv6() && !parsed.isEmpty());
  ZQ_FUZZ_CHECK((zq::IPAddress::ipv4AddressRange(text) == zq::IPAddress::RANGE_INVALID) == (!v4 && !v6));
  if (v4 || v6) checkPrintedForm(parsed);

  // Any bytes at all are an address that prints and reads back.
  checkPrintedForm(zq::IPAddress(data, size));
  return 0;
}
