// Where the arguments of makeArguments and of a typed emission live: a vector and its
// arguments in one allocation of signal memory, so that an emission costs one allocation
// whatever the number of its arguments, and none at all when the thread has a spare.
#pragma once

#include <zq/Export.h>
#include <zq/signals/Argument.h>
#include <zq/signals/internal/Sanitizers.h>
#include <zq/signals/internal/SignalMemory.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace zq {
namespace internal {

// Room for the arguments T..., one slot each, built in place and ended by type.
template <class... T>
struct ArgumentSlots {
  typedef
      typename std::aligned_union<1, GenericArgument<char>, typename ArgumentTraits<T>::argument_type...>::type Slot;
  Slot slots[sizeof...(T) == 0 ? 1 : sizeof...(T)];

  // Builds the values into `args`; if one throws, those already built are ended again.
  template <class... V>
  void fill(Argument** args, V&&... values) {
    std::size_t i = 0;
    try {
      ((args[i] = ::new (static_cast<void*>(&slots[i]))
            typename ArgumentTraits<T>::argument_type(ArgumentTraits<T>::init(std::forward<V>(values))),
        ++i),
       ...);
    } catch (...) {
      end(args);
      throw;
    }
  }
  // Ends each argument by its own type, without a virtual call, and nulls its slot.
  void end(Argument** args) { end(args, std::index_sequence_for<T...>()); }

 private:
  template <std::size_t... I>
  static void end(Argument** args, std::index_sequence<I...>) {
    (endOne<typename ArgumentTraits<T>::argument_type>(args[I]), ...);
  }
  template <class A>
  static void endOne(Argument*& a) {
    if (a != nullptr) static_cast<A*>(a)->A::~A();
    a = nullptr;
  }
};

// A vector with its arguments T... beside it, for one use.
template <class... T>
class ArgumentBlock : public ArgumentVector {
 public:
  template <class... V>
  explicit ArgumentBlock(V&&... values) {
    m_values.fill(m_args, std::forward<V>(values)...);
  }
  ~ArgumentBlock() { m_values.end(m_args); }  // the vector then finds every slot null
  ArgumentBlock(const ArgumentBlock&) = delete;
  ArgumentBlock& operator=(const ArgumentBlock&) = delete;

 private:
  ArgumentSlots<T...> m_values;
};

template <class... T, class... V>
std::shared_ptr<ArgumentVector> makeArgumentsAs(V&&... values) {
  static_assert(sizeof...(T) <= ArgumentVector::max, "a signal carries at most eight arguments");
  return std::allocate_shared<ArgumentBlock<T...>>(SignalAllocator<ArgumentBlock<T...>>(), std::forward<V>(values)...);
}

// A vector with room for arguments of any types, made by the library: a thread keeps one
// between emissions of whatever types, and as it holds no arguments then and runs none but
// the library's code, it may outlive the code that filled it (a plug-in that is unloaded).
struct ZQ_API ArgumentSpace : ArgumentVector {
  static constexpr std::size_t kSize = 640;  // eight strings

  ArgumentSpace();
  ~ArgumentSpace();  // ends what is left in it through each argument's virtual destructor
  ArgumentSpace(const ArgumentSpace&) = delete;
  ArgumentSpace& operator=(const ArgumentSpace&) = delete;

  alignas(16) unsigned char m_room[kSize];
};

// The calling thread's spare: empty, or an ArgumentSpace without arguments.
ZQ_API std::shared_ptr<ArgumentVector>& spareArgumentSpace();
ZQ_API std::shared_ptr<ArgumentVector> newArgumentSpace();

// The arguments of one typed emission, in the thread's spare space if they fit. The emission
// lends them to its frame and gets them back; if then nobody else holds them (no queued slot,
// no slot that kept a copy), they are ended and the space is the thread's spare again.
// Values live no longer than in a fresh block; but a weak_ptr taken to the arguments does not
// expire while their space waits for reuse.
template <class... T>
class LentArguments {
  typedef ArgumentSlots<T...> Slots;
  static constexpr bool kFits = sizeof(Slots) <= ArgumentSpace::kSize && alignof(Slots) <= 16;

 public:
  template <class... V>
  explicit LentArguments(V&&... values) {
    if constexpr (kFits) {
      m_spare = &spareArgumentSpace();
      m_args = *m_spare ? std::move(*m_spare) : newArgumentSpace();
      ArgumentSpace& space = *static_cast<ArgumentSpace*>(m_args.get());
      unparkMemory(space.m_room, sizeof(Slots));
      m_slots = ::new (static_cast<void*>(space.m_room)) Slots;
      try {
        m_slots->fill(space.m_args, std::forward<V>(values)...);
      } catch (...) {
        park();
        throw;
      }
      m_space = &space;
    } else {
      m_args = makeArgumentsAs<T...>(std::forward<V>(values)...);
    }
  }
  ~LentArguments() {
    // Not in a space, not given back (a slot threw, its frame keeps them), or shared: let go.
    if (m_space == nullptr || m_args.get() != m_space || m_args.use_count() != 1) return;
      // Orders the ending of the values after the reads of a thread that held them last.
#if defined(ZQ_INTERNAL_TSAN)
    { std::shared_ptr<ArgumentVector> acquire(m_args); }  // a read-modify-write, which it follows
#else
    std::atomic_thread_fence(std::memory_order_acquire);
#endif
    m_slots->end(m_space->m_args);
    park();
  }
  LentArguments(const LentArguments&) = delete;
  LentArguments& operator=(const LentArguments&) = delete;

  std::shared_ptr<ArgumentVector>& args() { return m_args; }

 private:
  // Back to the thread as its spare, unless a nested emission parked one meanwhile.
  void park() {
    parkMemory(static_cast<ArgumentSpace*>(m_args.get())->m_room, ArgumentSpace::kSize);
    if (!*m_spare) *m_spare = std::move(m_args);
  }

  std::shared_ptr<ArgumentVector> m_args;
  std::shared_ptr<ArgumentVector>* m_spare = nullptr;  // the thread's, when the arguments are in a space
  ArgumentSpace* m_space = nullptr;
  Slots* m_slots = nullptr;
};

}  // namespace internal

template <class... V>
std::shared_ptr<ArgumentVector> makeArguments(V&&... values) {
  return internal::makeArgumentsAs<carried_t<V>...>(std::forward<V>(values)...);
}

}  // namespace zq
