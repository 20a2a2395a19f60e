// Base64: the standard-alphabet codec, with its buffer-size calculations and the 76-character
// lines of MIME, broken by CR LF.
#pragma once

#include <zq/Export.h>

#include <cstddef>
#include <string>

namespace zq {

// Static members only; stateless and thread-safe.
class ZQ_API Base64 {
 public:
  // The 64 characters of the alphabet, with no terminator.
  static constexpr char sm_Table[64] = {'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I', 'J', 'K', 'L', 'M', 'N', 'O', 'P',
                                        'Q', 'R', 'S', 'T', 'U', 'V', 'W', 'X', 'Y', 'Z', 'a', 'b', 'c', 'd', 'e', 'f',
                                        'g', 'h', 'i', 'j', 'k', 'l', 'm', 'n', 'o', 'p', 'q', 'r', 's', 't', 'u', 'v',
                                        'w', 'x', 'y', 'z', '0', '1', '2', '3', '4', '5', '6', '7', '8', '9', '+', '/'};

  // Encoder flags, combined with |. By default the output is padded with "=" and broken after
  // every 76 characters by CR LF.
  static constexpr int kNoPadding = 1;
  static constexpr int kNoLineBreaks = 2;

  // A buffer size for encode, with room to spare in some cases; not the exact output length.
  static std::size_t calcEncodedLength(std::size_t size, int flags = 0);
  // An upper bound of what decode writes for `text`: line breaks are counted as data and each
  // "=" at the end lowers it by one (never below 0). 0 for a null text. Made safe: never below
  // what decode writes, which more than two "=" could otherwise bring it under.
  static std::size_t calcDencodedLength(const char* text, std::size_t length);

  // Encodes `size` bytes into `out` and returns the count of characters written; no NUL is
  // added. Returns 0 and writes nothing when there is no input, a pointer is null, or `outSize`
  // is below calcEncodedLength(size, flags). A line that ends exactly at the end of the data
  // keeps its CR LF.
  static std::size_t encode(const unsigned char* data, std::size_t size, char* out, std::size_t outSize, int flags = 0);
  // Decodes `text` into `out` and returns the count of bytes written. Characters outside the
  // alphabet (line breaks, blanks, "=") are passed over, and bits left over at the end are
  // dropped. Returns 0 when `length` or `outSize` is 0 or a pointer is null. `outSize` is not a
  // limit: the caller must provide calcDencodedLength(text, length) bytes.
  static std::size_t decode(const char* text, std::size_t length, unsigned char* out, std::size_t outSize);

  // The encoded text of `data`.
  static std::string encode(const std::string& data, int flags = 0);
  // The decoded bytes of `text` up to the first zero byte: this form is for text; binary data
  // goes through the buffer form.
  static std::string decode(const std::string& text);
};

}  // namespace zq
