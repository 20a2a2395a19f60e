// The hardware-address reader on any text: any six bytes print in a form both readers accept and
// that reads back to them; the narrow and wide readers agree; text that fails changes nothing.
#include <zq/Net/MacAddress.h>

#include "FuzzSupport.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::wstring wide(text.begin(), text.end());

  const zq::MacAddress narrow(text);
  ZQ_FUZZ_CHECK(narrow == zq::MacAddress(wide));
  (void)zq::MacAddress::isMacAddress(text);
  (void)zq::MacAddress::isMacAddress(text.c_str());

  zq::MacAddress kept(1, 2, 3, 4, 5, 6);
  kept.fromString(text);
  ZQ_FUZZ_CHECK(kept == narrow || (kept == zq::MacAddress(1, 2, 3, 4, 5, 6) && narrow.isZero()));

  if (size >= zq::MacAddress::k_size) {
    const zq::MacAddress address(data);
    const std::string printed = address.toString();
    ZQ_FUZZ_CHECK(zq::MacAddress::isMacAddress(printed));
    ZQ_FUZZ_CHECK(zq::MacAddress(printed) == address);
    ZQ_FUZZ_CHECK(zq::MacAddress(address.toWString()) == address);
    ZQ_FUZZ_CHECK(address.compare(narrow) == -narrow.compare(address));
  }
  return 0;
}
