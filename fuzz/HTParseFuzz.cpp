// The URL parser's three functions on any pair of texts and any mask: each returns a terminated
// buffer; the escaper keeps exactly the characters its mask allows, and its output decodes back.
#include <zq/Net/HTParse.h>

#include "FuzzSupport.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

struct Freed {
  char* text;
  explicit Freed(char* t) : text(t) {}
  ~Freed() { std::free(text); }
  Freed(const Freed&) = delete;
  Freed& operator=(const Freed&) = delete;
};

// The class bits the escaper documents.
unsigned char classOf(unsigned char c) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return 7;
  if (std::strchr("*-.@_", c) != nullptr && c != 0) return 7;
  if (c == '+') return 6;
  if (c == '/') return 4;
  return 0;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

void checkEscape(const std::string& text, unsigned char mask) {
  const Freed escaped(zq::HTEscape(text.c_str(), mask));
  ZQ_FUZZ_CHECK(escaped.text != nullptr);
  std::string decoded;
  for (const char* p = escaped.text; *p != 0; ++p) {
    const auto c = static_cast<unsigned char>(*p);
    if (c == '%') {
      const int high = hexValue(p[1]);
      ZQ_FUZZ_CHECK(high >= 0);
      const int low = hexValue(p[2]);
      ZQ_FUZZ_CHECK(low >= 0);
      decoded.push_back(static_cast<char>(high * 16 + low));
      p += 2;
    } else if (c == '+' && (classOf(c) & mask) == 0) {  // a blank; "+" itself would be escaped
      decoded.push_back(' ');
    } else if (c == '+') {  // a blank or a kept "+": only the characters are checked then
      decoded.push_back('+');
    } else {
      ZQ_FUZZ_CHECK((classOf(c) & mask) != 0);
      decoded.push_back(static_cast<char>(c));
    }
  }
  // With "+" kept as it is, a "+" in the output may stand for a blank or for itself.
  if ((classOf('+') & mask) != 0) return;
  ZQ_FUZZ_CHECK(decoded == text.substr(0, std::strlen(text.c_str())));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const unsigned char maskByte = zq::fuzz::takeByte(data, size);
  const std::vector<std::string> fields = zq::fuzz::splitFields(data, size, 2);
  const std::string& given = fields[0];
  const std::string& related = fields[1];
  const int mask = maskByte & 0x7F;

  const Freed parsed(zq::HTParse(given.c_str(), related.c_str(), mask));
  ZQ_FUZZ_CHECK(parsed.text != nullptr);
  const Freed whole(zq::HTParse(given.c_str(), related.c_str(), zq::HT_ALL));
  ZQ_FUZZ_CHECK(whole.text != nullptr);
  const Freed nothing(zq::HTParse(given.c_str(), related.c_str(), 0));
  ZQ_FUZZ_CHECK(nothing.text != nullptr && nothing.text[0] == 0);
  const Freed nulls(zq::HTParse(nullptr, nullptr, mask));
  ZQ_FUZZ_CHECK(nulls.text != nullptr);

  const Freed relative(zq::HTRelative(given.c_str(), related.c_str()));
  ZQ_FUZZ_CHECK(relative.text != nullptr);
  const Freed relativeBack(zq::HTRelative(related.c_str(), given.c_str()));
  ZQ_FUZZ_CHECK(relativeBack.text != nullptr);

  checkEscape(given, maskByte);
  checkEscape(related, static_cast<unsigned char>(mask));
  return 0;
}
