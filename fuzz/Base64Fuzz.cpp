// The Base64 codec on any bytes: decoding keeps to the buffer it is given, the two decoders
// agree, and the encoding of any bytes under any flags decodes back to them.
#include <zq/values/Base64.h>

#include "FuzzSupport.h"

#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  // Sized by the bound, which surplus "=" bring below what the text holds: the address
  // sanitizer sees any byte written past it.
  std::vector<unsigned char> sized(zq::Base64::calcDencodedLength(text, size));
  ZQ_FUZZ_CHECK(zq::Base64::decode(text, size, sized.data(), sized.size()) <= sized.size());

  // With room for every character's six bits, the buffer form gives all there is.
  std::vector<unsigned char> decoded(size * 3 / 4 + 3);
  const std::size_t written = zq::Base64::decode(text, size, decoded.data(), decoded.size());

  // The string form is for text: what the buffer form gives, up to its first zero byte.
  const std::string asString = zq::Base64::decode(std::string(text, size));
  const std::string expected(reinterpret_cast<const char*>(decoded.data()), written);
  ZQ_FUZZ_CHECK(asString == expected.substr(0, std::strlen(expected.c_str())));

  for (int flags = 0; flags < 4; ++flags) {
    const std::size_t room = zq::Base64::calcEncodedLength(size, flags);
    std::vector<char> encoded(room);
    const std::size_t length = zq::Base64::encode(data, size, encoded.data(), encoded.size(), flags);
    ZQ_FUZZ_CHECK(length <= room && (length == 0) == (size == 0));
    if (size == 0) continue;
    ZQ_FUZZ_CHECK(zq::Base64::encode(data, size, encoded.data(), room - 1, flags) == 0);
    std::vector<unsigned char> back(zq::Base64::calcDencodedLength(encoded.data(), length));
    ZQ_FUZZ_CHECK(back.size() >= size);
    const std::size_t backSize = zq::Base64::decode(encoded.data(), length, back.data(), back.size());
    ZQ_FUZZ_CHECK(backSize == size && std::memcmp(back.data(), data, size) == 0);
    const std::string viaString = zq::Base64::encode(std::string(text, size), flags);
    ZQ_FUZZ_CHECK(viaString == std::string(encoded.data(), length));
  }
  return 0;
}
