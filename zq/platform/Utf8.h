// UTF-8, the byte form that wide text takes here: in file names, on standard error, and in
// signal string arguments. Not exported.
#pragma once

#include <cstddef>
#include <string>

namespace zq {
namespace platform {

// Appends the UTF-8 form of one code point; values that are no Unicode scalar value
// (surrogates, above 0x10FFFF) become U+FFFD.
void appendUtf8(std::string& out, char32_t codePoint);

// wchar_t is 32-bit here: each unit is one code point.
std::string toUtf8(const std::wstring& text);
std::string toUtf8(const wchar_t* text, std::size_t length);
// UTF-16: surrogate pairs join into one code point, lone surrogates become U+FFFD.
std::string toUtf8(const unsigned short* text, std::size_t length);

}  // namespace platform
}  // namespace zq
