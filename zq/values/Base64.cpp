#include <zq/values/Base64.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

namespace zq {

namespace {

constexpr const char* kAlphabet = Base64::sm_Table;
constexpr std::size_t kGroupsPerLine = 19;  // 76 characters
constexpr std::size_t kCharsPerLine = kGroupsPerLine * 4;

// Two characters for each 12 bits: half the table look-ups of the plain alphabet.
using PairTable = std::array<std::array<char, 2>, 4096>;
constexpr PairTable makePairTable() {
  PairTable t{};
  for (std::size_t i = 0; i < t.size(); ++i) {
    t[i][0] = kAlphabet[i >> 6];
    t[i][1] = kAlphabet[i & 63];
  }
  return t;
}
constexpr PairTable kPairs = makePairTable();

// One table per character position of a group, holding the six bits already in place; a
// character outside the alphabet sets bit 24, so one OR of four look-ups tells a clean group.
constexpr std::uint32_t kForeign = 0x1000000u;
using DecodeTable = std::array<std::uint32_t, 256>;
constexpr DecodeTable makeDecodeTable(unsigned shift) {
  DecodeTable t{};
  for (auto& v : t) v = kForeign;
  for (std::uint32_t i = 0; i < 64; ++i) t[static_cast<unsigned char>(kAlphabet[i])] = i << shift;
  return t;
}
constexpr DecodeTable kDecode0 = makeDecodeTable(18);
constexpr DecodeTable kDecode1 = makeDecodeTable(12);
constexpr DecodeTable kDecode2 = makeDecodeTable(6);
constexpr DecodeTable kDecode3 = makeDecodeTable(0);  // doubles as the plain value table

char* encodeGroups(const unsigned char* in, std::size_t groups, char* out) {
  for (std::size_t g = 0; g < groups; ++g, in += 3, out += 4) {
    const std::uint32_t v = (std::uint32_t{in[0]} << 16) | (std::uint32_t{in[1]} << 8) | in[2];
    std::memcpy(out, kPairs[v >> 12].data(), 2);
    std::memcpy(out + 2, kPairs[v & 0xFFF].data(), 2);
  }
  return out;
}

}  // namespace

std::size_t Base64::calcEncodedLength(std::size_t size, int flags) {
  std::size_t n = size * 4 / 3;
  if (!(flags & kNoPadding)) n += size % 3;
  const std::size_t lines = n / kCharsPerLine;
  const std::size_t rest = n % kCharsPerLine;
  if (rest != 0 && rest % 4 != 0) n += 4 - rest % 4;
  if (flags & kNoLineBreaks) return n;
  return n + (lines + 1) * 2;
}

std::size_t Base64::calcDencodedLength(const char* text, std::size_t length) {
  if (text == nullptr) return 0;
  std::size_t n = (length / 4) * 3 + length % 4;
  std::size_t padding = 0;
  for (std::size_t i = length; i > 0 && text[i - 1] == '=' && n > 0; --i, --n) ++padding;
  // Up to two "=" the count stays above what decode writes; past them it can fall below it
  // ("ZAm8====" counts 2 and decodes to 3), and a buffer sized by it would overflow.
  if (padding > 2) {
    const auto* in = reinterpret_cast<const unsigned char*>(text);
    std::size_t alphabet = 0;
    for (std::size_t i = 0; i < length; ++i) alphabet += (kDecode3[in[i]] & kForeign) == 0 ? 1 : 0;
    n = std::max(n, alphabet * 6 / 8);
  }
  return n;
}

std::size_t Base64::encode(const unsigned char* data, std::size_t size, char* out, std::size_t outSize, int flags) {
  if (data == nullptr || out == nullptr || size == 0 || outSize == 0 || outSize < calcEncodedLength(size, flags)) {
    return 0;
  }
  const std::size_t full = size / 3 * 4;
  char* p = out;
  if (flags & kNoLineBreaks) {
    p = encodeGroups(data, full / 4, p);
  } else {
    // Every complete line ends in CR LF, the last one too when the groups end exactly there.
    const std::size_t lines = full / kCharsPerLine;
    for (std::size_t line = 0; line < lines; ++line) {
      p = encodeGroups(data + line * kGroupsPerLine * 3, kGroupsPerLine, p);
      *p++ = '\r';
      *p++ = '\n';
    }
    p = encodeGroups(data + lines * kGroupsPerLine * 3, (full % kCharsPerLine) / 4, p);
  }

  const std::size_t r = size % 3;
  if (r != 0) {
    const unsigned char* tail = data + size - r;
    const std::uint32_t v = (std::uint32_t{tail[0]} << 16) | (r == 2 ? std::uint32_t{tail[1]} << 8 : 0u);
    for (std::size_t i = 0; i <= r; ++i) *p++ = sm_Table[(v >> (18 - 6 * i)) & 63];
    if (!(flags & kNoPadding)) {
      for (std::size_t i = r; i < 3; ++i) *p++ = '=';
    }
  }
  return static_cast<std::size_t>(p - out);
}

std::size_t Base64::decode(const char* text, std::size_t length, unsigned char* out, std::size_t outSize) {
  if (text == nullptr || out == nullptr || length == 0 || outSize == 0) return 0;
  const auto* in = reinterpret_cast<const unsigned char*>(text);
  std::size_t n = 0;
  std::size_t i = 0;
  std::uint32_t bits = 0;  // accumulator; only its low `held` bits matter
  unsigned held = 0;
  while (i < length) {
    if (held == 0) {
      // Whole groups of four alphabet characters, as long as they come.
      for (; i + 4 <= length; i += 4, n += 3) {
        const std::uint32_t v = kDecode0[in[i]] | kDecode1[in[i + 1]] | kDecode2[in[i + 2]] | kDecode3[in[i + 3]];
        if (v & kForeign) break;
        out[n] = static_cast<unsigned char>(v >> 16);
        out[n + 1] = static_cast<unsigned char>(v >> 8);
        out[n + 2] = static_cast<unsigned char>(v);
      }
      if (i >= length) break;
    }
    // One character at a time until the groups line up again.
    const std::uint32_t v = kDecode3[in[i++]];
    if (v & kForeign) continue;
    bits = (bits << 6) | v;
    held += 6;
    if (held >= 8) {
      held -= 8;
      out[n++] = static_cast<unsigned char>(bits >> held);
    }
  }
  return n;
}

std::string Base64::encode(const std::string& data, int flags) {
  std::vector<char> buffer(calcEncodedLength(data.size(), flags) + 1, '\0');
  const std::size_t n =
      encode(reinterpret_cast<const unsigned char*>(data.data()), data.size(), buffer.data(), buffer.size(), flags);
  return std::string(buffer.data(), n);
}

std::string Base64::decode(const std::string& text) {
  // Not calcDencodedLength: text with surplus "=" would overrun it. Decoding never yields more
  // bytes than it reads characters.
  std::vector<unsigned char> buffer(text.size() + 1, 0);
  const std::size_t n = decode(text.data(), text.size(), buffer.data(), buffer.size());
  const auto end = std::find(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(n), 0);
  return std::string(buffer.begin(), end);
}

}  // namespace zq
