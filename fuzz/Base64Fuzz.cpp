// The Base64 codec on any bytes: decoding any text stays within the documented bound, the two
// decoders agree, and the encoding of any bytes under any flags decodes back to them.
#include <zq/values/Base64.h>

#include "FuzzSupport.h"

#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  const std::size_t bound = zq::Base64::calcDencodedLength(text, size);
  std::vector<unsigned char> decoded(bound + 1);
  const std::size_t written = zq::Base64::decode(text, size, decoded.data(), decoded.size());
  ZQ_FUZZ_CHECK(written <= bound);

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
