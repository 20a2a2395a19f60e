// Url on any pair of texts: every part and operation runs, the parts agree with one another,
// copies compare equal, and texts that differ only in ASCII letter case compare and hash alike.
#include <zq/Net/Url.h>

#include "FuzzSupport.h"

#include <cctype>
#include <sstream>
#include <string>

namespace {

void touchParts(const zq::Url& url) {
  (void)url.scheme();
  (void)url.host();
  (void)url.port();
  (void)url.query();
  const char* path = url.path();
  const char* fragment = url.fragment();
  ZQ_FUZZ_CHECK(url.relative() == ((path != nullptr && !url.absolute()) || fragment != nullptr));
  if (url.absolute()) ZQ_FUZZ_CHECK(path != nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> fields = zq::fuzz::splitFields(data, size, 2);
  const std::string& text = fields[0];
  const std::string& other = fields[1];

  const zq::Url url(text);
  touchParts(url);
  ZQ_FUZZ_CHECK(url.empty() == text.empty());

  std::string flipped = text;
  for (char& c : flipped) {
    if (std::isupper(static_cast<unsigned char>(c)))
      c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    else if (std::islower(static_cast<unsigned char>(c)))
      c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  const zq::Url flippedUrl(flipped);
  ZQ_FUZZ_CHECK(hash_value(url) == hash_value(flippedUrl));
  // Past 0x7F a lead byte swallows what follows, ASCII letters included, into one character.
  bool ascii = true;
  for (char c : text) ascii = ascii && static_cast<unsigned char>(c) < 0x80;
  if (ascii) ZQ_FUZZ_CHECK(url == flippedUrl && flippedUrl == url);
  const zq::Url copy(url);
  ZQ_FUZZ_CHECK(copy == url && copy.str() == url.str());

  zq::Url appended(url);
  appended /= other;
  touchParts(appended);
  zq::Url resolved(url);
  resolved %= other;
  touchParts(resolved);
  zq::Url relativized(url);
  relativized.relativize(other.c_str());
  touchParts(relativized);
  zq::Url escaped(url);
  escaped.escape();
  touchParts(escaped);
  ZQ_FUZZ_CHECK(escaped.str().find(' ') == std::string::npos);
  (void)zq::Url::validate(text);
  (void)(url == other);
  (void)(url == other.c_str());

  std::ostringstream out;
  out << url;
  ZQ_FUZZ_CHECK(out.str() == text);
  return 0;
}
