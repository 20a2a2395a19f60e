#include <zq/platform/Utf8.h>

namespace zq {
namespace platform {

namespace {
constexpr char32_t kReplacement = 0xFFFD;

bool isSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDFFF; }
}  // namespace

void appendUtf8(std::string& out, char32_t c) {
  if (c > 0x10FFFF || isSurrogate(c)) c = kReplacement;
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

std::string toUtf8(const wchar_t* text, std::size_t length) {
  std::string out;
  out.reserve(length);
  for (std::size_t i = 0; i < length; ++i) appendUtf8(out, static_cast<char32_t>(text[i]));
  return out;
}

std::string toUtf8(const std::wstring& text) { return toUtf8(text.data(), text.size()); }

std::string toUtf8(const unsigned short* text, std::size_t length) {
  std::string out;
  out.reserve(length);
  for (std::size_t i = 0; i < length; ++i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < length && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    }
    appendUtf8(out, c);
  }
  return out;
}

}  // namespace platform
}  // namespace zq
