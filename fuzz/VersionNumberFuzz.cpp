// The version reader on any text: it never throws for a good stream, its printed form and short
// form always come out, and numbers printed with a plain prefix read back to the same version.
#include <zq/values/VersionNumber.h>

#include "FuzzSupport.h"

#include <cstring>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Bytes become wide characters one by one, so every code below 256 is reachable.
  const std::wstring text(data, data + size);

  const zq::VersionNumber version(text);
  (void)version.toString();
  (void)version.toShortVersion();

  std::wistringstream in(text);
  zq::VersionNumber streamed;
  streamed.readFrom(in);
  ZQ_FUZZ_CHECK(streamed == version);

  unsigned int numbers[4] = {};
  std::memcpy(numbers, data, size < sizeof numbers ? size : sizeof numbers);
  const zq::VersionNumber built(L"v", numbers[0], numbers[1], numbers[2], numbers[3], L"");
  const zq::VersionNumber read(built.toString());
  ZQ_FUZZ_CHECK(read == built && !(read < built) && read <= built && read >= built);
  ZQ_FUZZ_CHECK(read.getPrefix() == L"v");
  ZQ_FUZZ_CHECK((version < built) == (built > version));
  ZQ_FUZZ_CHECK((version == built) == (version <= built && version >= built));
  return 0;
}
