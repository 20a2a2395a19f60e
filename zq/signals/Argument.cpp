#include <zq/signals/Argument.h>

#include <zq/platform/Demangle.h>
#include <zq/platform/Utf8.h>
#include <zq/signals/SignalPublisher.h>
#include <zq/signals/internal/SignalMemory.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>

namespace zq {
namespace {

// One unit of 16-bit or wide text. Surrogates are not paired up: each half is encoded by
// itself, as the text's own platform does, so a pair gives six bytes.
void appendUnit(std::string& out, char32_t unit) {
  if (unit >= 0xD800 && unit <= 0xDFFF) {
    out += static_cast<char>(0xE0 | (unit >> 12));
    out += static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (unit & 0x3F));
  } else {
    platform::appendUtf8(out, unit);
  }
}

template <class C>
std::string toUtf8(const basic_stringref<C>& text) {
  std::string out;
  bool ascii = true;
  for (std::size_t i = 0; i < text.m_length && ascii; ++i) ascii = static_cast<char32_t>(text.m_text[i]) < 0x80;
  if (ascii) {
    out.resize(text.m_length);
    for (std::size_t i = 0; i < text.m_length; ++i) out[i] = static_cast<char>(text.m_text[i]);
    return out;
  }
  out.reserve(text.m_length * 3);
  for (std::size_t i = 0; i < text.m_length; ++i) appendUnit(out, static_cast<char32_t>(text.m_text[i]));
  return out;
}

std::string toUtf8(const basic_stringref<char>& text) {
  return text.m_text != nullptr ? std::string(text.m_text, text.m_length) : std::string();
}

std::ostream& printString(std::ostream& os, const std::string& text) {
  const std::streamsize precision = os.precision();
  if (precision > 32 && text.size() > static_cast<std::size_t>(precision))
    return os << "'" << text.substr(0, static_cast<std::size_t>(precision)) << "...";
  return os << "'" << text << "'";
}

}  // namespace

// ---- Argument ---------------------------------------------------------------------------

bool Argument::isa(const TypePair& type) const { return SignalPublisher::matchesType(type, m_type); }

void* Argument::operator new(std::size_t size) { return internal::allocateSignalMemory(size); }

void Argument::operator delete(void* argument, std::size_t size) noexcept {
  internal::freeSignalMemory(argument, size);
}

// ---- StringArgument ---------------------------------------------------------------------

static const TypePair& stringType() {
  static const TypePair type = ArgumentTraits<std::string>::type();
  return type;
}

StringArgument::StringArgument(const basic_stringref<char>& text)
    : Argument(stringType(), nullptr, 1), m_value(toUtf8(text)) {
  m_data = &m_value;
}

StringArgument::StringArgument(const basic_stringref<unsigned short>& text)
    : Argument(stringType(), nullptr, 1), m_value(toUtf8(text)) {
  m_data = &m_value;
}

StringArgument::StringArgument(const basic_stringref<wchar_t>& text)
    : Argument(stringType(), nullptr, 1), m_value(toUtf8(text)) {
  m_data = &m_value;
}

StringArgument::StringArgument(const StringArgument& other) : Argument(other), m_value(other.m_value) {
  m_data = &m_value;
}

StringArgument& StringArgument::operator=(const StringArgument& other) {
  m_type = other.m_type;
  m_count = other.m_count;
  m_value = other.m_value;
  return *this;
}

std::ostream& StringArgument::print(std::ostream& os) const { return printString(os, m_value); }

// ---- StringArrayArgument ----------------------------------------------------------------

StringArrayArgument::StringArrayArgument(std::size_t count)
    : Argument(ArgumentTraits<std::vector<std::string>>::type(), new std::string[count], count) {}

StringArrayArgument::StringArrayArgument(const std::vector<std::string>& strings)
    : StringArrayArgument(strings.size()) {
  for (std::size_t i = 0; i < strings.size(); ++i) this->strings()[i] = strings[i];
}

StringArrayArgument::StringArrayArgument(const StringArrayArgument& other)
    : Argument(other.m_type, nullptr, other.m_count) {
  std::unique_ptr<std::string[]> strings(new std::string[m_count]);
  std::copy(other.strings(), other.strings() + m_count, strings.get());
  m_data = strings.release();
}

StringArrayArgument& StringArrayArgument::operator=(const StringArrayArgument& other) {
  StringArrayArgument copy(other);  // the old array goes only once the new one stands
  std::swap(m_type, copy.m_type);
  std::swap(m_data, copy.m_data);
  std::swap(m_count, copy.m_count);
  return *this;
}

StringArrayArgument::~StringArrayArgument() { delete[] strings(); }

void StringArrayArgument::set(std::size_t index, const basic_stringref<char>& text) { strings()[index] = toUtf8(text); }

void StringArrayArgument::set(std::size_t index, const basic_stringref<unsigned short>& text) {
  strings()[index] = toUtf8(text);
}

void StringArrayArgument::set(std::size_t index, const basic_stringref<wchar_t>& text) {
  strings()[index] = toUtf8(text);
}

std::ostream& StringArrayArgument::print(std::ostream& os) const {
  os << "[";
  for (std::size_t i = 0; i < m_count; ++i) {
    if (i != 0) os << ",";
    printString(os, strings()[i]);
  }
  return os << "]";
}

// ---- ArgumentVector ---------------------------------------------------------------------

std::ostream& operator<<(std::ostream& os, const Argument& a) {
  os << a.m_type.first << " ";
  return a.print(os);
}

std::ostream& operator<<(std::ostream& os, const ArgumentVector& v) {
  for (std::size_t i = 0; i < ArgumentVector::max && v[i] != nullptr; ++i) {
    if (i != 0) os << ",";
    os << *v[i];
  }
  return os;
}

}  // namespace zq

std::ostream& print_type(std::ostream& os, const char* name) {
  std::string text(name != nullptr ? name : "");
  static const char kClass[] = "class ";
  static const char kStruct[] = "struct ";
  if (text.compare(0, sizeof kClass - 1, kClass) == 0) text.erase(0, sizeof kClass - 1);
  if (text.compare(0, sizeof kStruct - 1, kStruct) == 0) text.erase(0, sizeof kStruct - 1);
  // Run-time names are mangled here; hand-written names are not, and stay as they are.
  std::string readable;
  return os << (zq::platform::demangle(text.c_str(), readable) ? readable : text);
}

std::ostream& print_type(std::ostream& os, const std::type_info& info) { return print_type(os, info.name()); }

std::ostream& print_address(std::ostream& os, const void* p) {
  if (p == nullptr) return os << "null";
  os << "0x" << std::hex << static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(p));
  os.setf(std::ios_base::dec, std::ios_base::basefield);
  return os;
}
