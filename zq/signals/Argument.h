// Signal arguments: type-erased values that travel with an emission, up to eight of them.
//
// Each value sits in an Argument that knows its type as a TypePair (the name as written, and
// the run-time name); the eight slots of an ArgumentVector travel behind a shared_ptr to every
// slot of one emission, on any thread. A vector is read-only once it is emitted.
//
//   std::shared_ptr<zq::ArgumentVector> args = zq::makeArguments(42, "text");
//   if (const int* n = zq::argument_cast<int>((*args)[0])) use(*n);
//   if (const std::string* s = zq::argument_cast<std::string>((*args)[1])) use(*s);
//
// Text of any width travels as a UTF-8 std::string (StringArgument), a std::vector of strings
// as a StringArrayArgument, any other T as a GenericArgument<T>.
//
// Printing of types and addresses (print_type, print_address) is global, outside namespace zq.
#pragma once

#include <zq/Export.h>

#include <cstddef>
#include <memory>
#include <new>
#include <ostream>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace zq {

// A type as (name as written, run-time name); both must live as long as the process.
typedef std::pair<const char*, const char*> TypePair;

// A view of text: a pointer to the first character and a length; no terminator needed.
template <class C>
struct basic_stringref {
  basic_stringref(const C* text, std::size_t length) : m_text(text), m_length(length) {}
  basic_stringref(const std::basic_string<C>& text) : m_text(text.data()), m_length(text.size()) {}
  // A terminated text; null gives the empty view.
  basic_stringref(const C* text) : m_text(text), m_length(0) {
    while (text != nullptr && text[m_length] != C()) ++m_length;
  }

  const C* m_text;
  std::size_t m_length;
};

// A value of some type, type-erased. Does not own m_data; subclasses keep the value.
struct ZQ_API Argument {
  virtual ~Argument() {}
  // Whether this argument's type matches `type` (either name of one equals either of the other).
  virtual bool isa(const TypePair& type) const;
  virtual std::ostream& print(std::ostream& os) const = 0;

  // Arguments come and go with emissions, often freed on another thread than the one that
  // made them: their memory comes from the signal system's per-thread stores.
  static void* operator new(std::size_t size);
  static void operator delete(void* argument, std::size_t size) noexcept;
  // Over-aligned values take the global forms.
  static void* operator new(std::size_t size, std::align_val_t alignment) { return ::operator new(size, alignment); }
  static void operator delete(void* argument, std::align_val_t alignment) noexcept {
    ::operator delete(argument, alignment);
  }

  TypePair m_type;
  void* m_data;         // the value, or the first of an array
  std::size_t m_count;  // the number of values at m_data

 protected:
  Argument(const TypePair& type, void* data, std::size_t count) : m_type(type), m_data(data), m_count(count) {}
  Argument(const Argument&) = default;
  Argument& operator=(const Argument&) = default;
};

// A value of any type T, printed as its type and the address where it is stored.
template <class T>
struct GenericArgument : Argument {
  GenericArgument() : Argument(TypePair("ArgT", typeid(T).name()), nullptr, 1), m_value() { m_data = &m_value; }
  template <class V,
            class = typename std::enable_if<!std::is_base_of<Argument, typename std::decay<V>::type>::value>::type>
  explicit GenericArgument(V&& value)
      : Argument(TypePair("ArgT", typeid(T).name()), nullptr, 1), m_value(std::forward<V>(value)) {
    m_data = &m_value;
  }
  GenericArgument(const GenericArgument& other) : Argument(other), m_value(other.m_value) { m_data = &m_value; }
  GenericArgument& operator=(const GenericArgument& other) {
    m_value = other.m_value;
    return *this;
  }

  std::ostream& print(std::ostream& os) const override;

  T m_value;
};

// Text as UTF-8. A copy holds and points at a value of its own.
struct ZQ_API StringArgument : Argument {
  explicit StringArgument(const basic_stringref<char>& text);  // bytes as they stand
  // Each 16-bit unit is encoded alone: a surrogate pair gives two three-byte sequences.
  explicit StringArgument(const basic_stringref<unsigned short>& text);
  explicit StringArgument(const basic_stringref<wchar_t>& text);
  StringArgument(const StringArgument& other);
  StringArgument& operator=(const StringArgument& other);

  // The text quoted; at a stream precision above 32, longer text is cut to that many bytes
  // and ends in "..." without the closing quote.
  std::ostream& print(std::ostream& os) const override;

  std::string m_value;
};

// An array of UTF-8 strings, owned through m_data. A copy has an array of its own.
struct ZQ_API StringArrayArgument : Argument {
  explicit StringArrayArgument(std::size_t count);  // `count` empty strings
  explicit StringArrayArgument(const std::vector<std::string>& strings);
  StringArrayArgument(const StringArrayArgument& other);
  StringArrayArgument& operator=(const StringArrayArgument& other);
  ~StringArrayArgument() override;

  // `index` is not checked.
  void set(std::size_t index, const basic_stringref<char>& text);
  void set(std::size_t index, const basic_stringref<unsigned short>& text);
  void set(std::size_t index, const basic_stringref<wchar_t>& text);

  std::ostream& print(std::ostream& os) const override;  // "[" strings "," ... "]"

  std::string* strings() const { return static_cast<std::string*>(m_data); }
};

// Up to eight arguments; owns them. Unused slots are null.
struct ZQ_API ArgumentVector {
  static constexpr std::size_t max = 8;

  explicit ArgumentVector(Argument* a0 = nullptr, Argument* a1 = nullptr, Argument* a2 = nullptr,
                          Argument* a3 = nullptr, Argument* a4 = nullptr, Argument* a5 = nullptr,
                          Argument* a6 = nullptr, Argument* a7 = nullptr)
      : m_args{a0, a1, a2, a3, a4, a5, a6, a7} {}
  ~ArgumentVector() {  // deletes every non-null slot
    for (Argument* a : m_args) delete a;
  }
  // Not copyable: each argument has one owner. Share vectors through shared_ptr.
  ArgumentVector(const ArgumentVector&) = delete;
  ArgumentVector& operator=(const ArgumentVector&) = delete;

  // The slot at `i`, or null from 8 on.
  Argument* operator[](std::size_t i) { return i < max ? m_args[i] : nullptr; }
  const Argument* operator[](std::size_t i) const { return i < max ? m_args[i] : nullptr; }

  Argument* m_args[max];
};

// "name value": the written type name, a blank, then the argument's own print.
ZQ_API std::ostream& operator<<(std::ostream& os, const Argument& a);
// The arguments from slot 0 up to the first null, separated by ",".
ZQ_API std::ostream& operator<<(std::ostream& os, const ArgumentVector& v);

// ---- carrying C++ values ---------------------------------------------------------------

// How a C++ type travels: its TypePair for declarations and slots, the Argument class that
// carries a value of it (built from init(value)), and the reading of that value back.
template <class T>
struct ArgumentTraits {
  typedef GenericArgument<T> argument_type;
  static TypePair type() { return TypePair(typeid(T).name(), typeid(T).name()); }
  template <class V>
  static V&& init(V&& value) {
    return std::forward<V>(value);
  }
  static const T& get(const Argument& a) { return *static_cast<const T*>(a.m_data); }
};

template <>
struct ArgumentTraits<std::string> {
  typedef StringArgument argument_type;
  static TypePair type() { return TypePair("std::string", typeid(std::string).name()); }
  static basic_stringref<char> init(const std::string& text) { return text; }
  static basic_stringref<char> init(const char* text) { return text; }
  static basic_stringref<wchar_t> init(const std::wstring& text) { return text; }
  static basic_stringref<wchar_t> init(const wchar_t* text) { return text; }
  static basic_stringref<unsigned short> init(const std::u16string& text) {
    return basic_stringref<unsigned short>(reinterpret_cast<const unsigned short*>(text.data()), text.size());
  }
  static const std::string& get(const Argument& a) { return *static_cast<const std::string*>(a.m_data); }
};

template <>
struct ArgumentTraits<std::vector<std::string>> {
  typedef StringArrayArgument argument_type;
  static TypePair type() { return TypePair("std::string[]", typeid(std::string[]).name()); }
  static const std::vector<std::string>& init(const std::vector<std::string>& strings) { return strings; }
  static std::vector<std::string> get(const Argument& a) {
    const std::string* first = static_cast<const std::string*>(a.m_data);
    return std::vector<std::string>(first, first + a.m_count);
  }
};

// A new argument carrying `value` as a T, for an ArgumentVector to own.
template <class T, class V>
Argument* makeArgument(V&& value) {
  return new typename ArgumentTraits<T>::argument_type(ArgumentTraits<T>::init(std::forward<V>(value)));
}

namespace internal {
template <class T>
struct Carried {
  typedef T type;
};
template <>
struct Carried<const char*> {
  typedef std::string type;
};
template <>
struct Carried<char*> {
  typedef std::string type;
};
template <>
struct Carried<const wchar_t*> {
  typedef std::string type;
};
template <>
struct Carried<wchar_t*> {
  typedef std::string type;
};
template <>
struct Carried<std::wstring> {
  typedef std::string type;
};
template <>
struct Carried<std::u16string> {
  typedef std::string type;
};
}  // namespace internal

// The type in which a value of V travels: text of any width as std::string, else V itself.
template <class V>
using carried_t = typename internal::Carried<typename std::decay<V>::type>::type;

// Whether `a` carries a T (false for null). Cheap when the run-time names are one pointer.
template <class T>
bool carries(const Argument* a) {
  if (a == nullptr) return false;
  const TypePair type = ArgumentTraits<T>::type();
  return a->m_type.second == type.second || a->isa(type);
}

// The value of `a` as a T, or null when `a` is null or carries another type. For a string
// array use ArgumentTraits<std::vector<std::string>>::get after carries().
template <class T>
const T* argument_cast(const Argument* a) {
  static_assert(!std::is_same<T, std::vector<std::string>>::value, "string arrays are read by copy");
  return carries<T>(a) ? &ArgumentTraits<T>::get(*a) : nullptr;
}

// A vector with one argument for each value, in order; text becomes UTF-8 strings. The vector
// and its arguments take one allocation.
template <class... V>
std::shared_ptr<ArgumentVector> makeArguments(V&&... values);

}  // namespace zq

// Writes a type name without a leading "class " and "struct ", readable if it is a run-time name.
ZQ_API std::ostream& print_type(std::ostream& os, const char* name);
ZQ_API std::ostream& print_type(std::ostream& os, const std::type_info& info);
// "null", or "0x" and the address in hexadecimal; leaves the stream in decimal.
ZQ_API std::ostream& print_address(std::ostream& os, const void* p);

template <class T>
std::ostream& zq::GenericArgument<T>::print(std::ostream& os) const {
  print_type(os, typeid(T).name()) << "@";
  return print_address(os, m_data);
}

// makeArguments, and what typed emission builds on.
#include <zq/signals/internal/ArgumentBlock.h>
