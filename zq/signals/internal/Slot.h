// The connection classes behind SignalPublisher's connect templates: they unpack an
// ArgumentVector and call a member function, a free function or a function object.
#pragma once

#include <zq/signals/Connection.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace zq {
namespace internal {

// The parameter list of something callable, as a list of the types the values travel in.
template <class... P>
struct Params {
  static constexpr std::size_t count = sizeof...(P);
};

template <class F, class = void>
struct CallableParams {};  // not callable with a single, non-template call operator

template <class R, class... P>
struct CallableParams<R (*)(P...)> {
  typedef Params<P...> type;
};
template <class R, class... P>
struct CallableParams<R (*)(P...) noexcept> {
  typedef Params<P...> type;
};
#define ZQ_INTERNAL_MEMBER_PARAMS(QUALIFIERS)                 \
  template <class R, class C, class... P>                     \
  struct CallableParams<R (C::*)(P...) QUALIFIERS> {          \
    typedef Params<P...> type;                                \
  };                                                          \
  template <class R, class C, class... P>                     \
  struct CallableParams<R (C::*)(P...) QUALIFIERS noexcept> { \
    typedef Params<P...> type;                                \
  };
ZQ_INTERNAL_MEMBER_PARAMS()
ZQ_INTERNAL_MEMBER_PARAMS(const)
ZQ_INTERNAL_MEMBER_PARAMS(&)
ZQ_INTERNAL_MEMBER_PARAMS(const&)
#undef ZQ_INTERNAL_MEMBER_PARAMS

template <class F>
struct CallableParams<F, typename std::enable_if<std::is_class<F>::value, decltype(void(&F::operator()))>::type>
    : CallableParams<decltype(&F::operator())> {};

template <class F, class = void>
struct IsSlotFunction : std::false_type {};
template <class F>
struct IsSlotFunction<F, decltype(void(typename CallableParams<F>::type()))> : std::true_type {};

// A slot reads its arguments through const references or copies: the vector is shared with
// every other slot of the emission.
template <class P>
struct SlotParam {
  static_assert(!std::is_lvalue_reference<P>::value || std::is_const<typename std::remove_reference<P>::type>::value,
                "a slot may not take a signal argument by non-const reference");
  typedef typename std::decay<P>::type type;
};

// Whether a slot taking Taken can be called with a signal's Declared arguments: no more
// parameters than arguments, each of the argument's own type.
template <bool CountFits, class Declared, class Taken>
struct PrefixFits : std::false_type {};
template <class... A, class... P>
struct PrefixFits<true, Params<A...>, Params<P...>> {
  template <std::size_t... I>
  static constexpr bool check(std::index_sequence<I...>) {
    return (true && ... &&
            std::is_same<carried_t<typename std::tuple_element<I, std::tuple<A...>>::type>,
                         typename SlotParam<P>::type>::value);
  }
  static constexpr bool value = check(std::index_sequence_for<P...>());
};
template <class Declared, class Taken>
struct SlotFits;
template <class... A, class... P>
struct SlotFits<Params<A...>, Params<P...>> : PrefixFits<(sizeof...(P) <= sizeof...(A)), Params<A...>, Params<P...>> {};

template <class Declared, class Taken>
void checkSlot() {
  static_assert(SlotFits<Declared, Taken>::value,
                "the slot takes more arguments than the signal has, or other types than it declares");
}

template <class M>
struct MemberOf;
template <class C, class T>
struct MemberOf<T C::*> {
  typedef C type;
};

// Identity of a member function as a slot name: its class, readable in reports, and the bytes
// of the member pointer (trailing zero bytes left out; the length is fixed, so the text stays
// unique).
template <class M>
std::string memberSlotName(M method) {
  static const char kHex[] = "0123456789abcdef";
  unsigned char bytes[sizeof(M)];
  std::memcpy(bytes, &method, sizeof(M));
  std::size_t used = sizeof(M);
  while (used > 1 && bytes[used - 1] == 0) --used;
  std::ostringstream name;
  print_type(name, typeid(typename MemberOf<M>::type)) << "::method@";
  for (std::size_t i = 0; i < used; ++i) name << kHex[bytes[i] >> 4] << kHex[bytes[i] & 0xF];
  return name.str();
}

// The slot name of free functions; the receiver is the function's address.
inline const char* functionSlotName() { return "function"; }

// Calls `function` with the first sizeof...(P) arguments of an emission. An emission whose
// arguments this slot cannot take (it skipped the declaration's check) is reported, not run.
template <class Function, class... P>
class SlotConnection : public ConnectionImplCpp {
 public:
  SlotConnection(const void* receiver, const std::string& slot, ConnectionType type, boost::asio::io_service* runLoop,
                 Function function)
      : ConnectionImplCpp(receiver, slot.c_str(), type, runLoop), m_function(std::move(function)) {}

  bool is_call_compatible(const SignalDeclaration& declaration) const override {
    const TypePair types[sizeof...(P) + 1] = {ArgumentTraits<typename SlotParam<P>::type>::type()..., TypePair()};
    return ConnectionImplCpp::is_call_compatible(declaration, types, sizeof...(P));
  }

  void call_slot(std::shared_ptr<ArgumentVector> args) override { call(args.get(), std::index_sequence_for<P...>()); }
  void call_slot_now(const std::shared_ptr<ArgumentVector>& args) override {
    call(args.get(), std::index_sequence_for<P...>());
  }

 private:
  template <std::size_t... I>
  void call(const ArgumentVector* args, std::index_sequence<I...>) {
    const Argument* given[sizeof...(P) + 1] = {(args != nullptr ? (*args)[I] : nullptr)..., nullptr};
    (void)given;
    if (!(true && ... && carries<typename SlotParam<P>::type>(given[I]))) {
      reportArgumentMismatch();
      return;
    }
    m_function(ArgumentTraits<typename SlotParam<P>::type>::get(*given[I])...);
  }

  Function m_function;
};

// Binds a member function to its receiver.
template <class R, class M>
struct MemberCall {
  template <class... A>
  void operator()(A&&... args) const {
    (m_receiver->*m_method)(std::forward<A>(args)...);
  }
  R* m_receiver;
  M m_method;
};

template <class Function, class P>
struct SlotConnectionFor;
template <class Function, class... P>
struct SlotConnectionFor<Function, Params<P...>> {
  typedef SlotConnection<Function, P...> type;
};

}  // namespace internal
}  // namespace zq
