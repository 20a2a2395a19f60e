// Writing a component pack: a table of component names and factories, and one macro that
// declares the two entry points the loader looks for.
//
//   zq::plugin::ComponentPack& pack() {
//     static zq::plugin::ComponentPack table = zq::plugin::ComponentPack().add<Clock>("demo.Clock");
//     return table;
//   }
//   ZQ_COMPONENT_PACK(pack())
//
// Keep the table in a function of the pack's own source file, as above, and not in an
// inline function of a header: the loader asks each pack for its own names.
#pragma once

#include <zq/plugin/IInterface.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace zq {
namespace plugin {

// The components of one pack by name. Filled once, before the loader asks; not thread-safe
// while being filled.
class ComponentPack {
 public:
  typedef std::function<IComponent*()> Factory;

  // Adds a component made by `factory`, which may return null when it can't make one.
  // A name added twice keeps its first factory.
  ComponentPack& add(const std::string& name, Factory factory) {
    m_names.insert(name);
    m_factories.insert(std::make_pair(name, std::move(factory)));
    return *this;
  }
  // Adds a component made by T's default constructor.
  template <class T>
  ComponentPack& add(const std::string& name) {
    return add(name, []() -> IComponent* { return new T(); });
  }

  // The same set object on every call, as the loader requires.
  std::set<std::string>& names() { return m_names; }
  // A new component that the caller owns, or null for an unknown name. What the factory
  // throws passes through.
  IComponent* create(const std::string& name) const {
    const auto found = m_factories.find(name);
    return found != m_factories.end() ? found->second() : nullptr;
  }

 private:
  std::set<std::string> m_names;
  std::map<std::string, Factory> m_factories;
};

}  // namespace plugin
}  // namespace zq

#if defined(__GNUC__) || defined(__clang__)
#define ZQ_PLUGIN_EXPORT __attribute__((visibility("default")))
#else
#define ZQ_PLUGIN_EXPORT
#endif

// The entry points pass C++ types under C names: only the undecorated names matter.
#if defined(__clang__)
#define ZQ_PLUGIN_C_TYPES_BEGIN \
  _Pragma("clang diagnostic push") _Pragma("clang diagnostic ignored \"-Wreturn-type-c-linkage\"")
#define ZQ_PLUGIN_C_TYPES_END _Pragma("clang diagnostic pop")
#else
#define ZQ_PLUGIN_C_TYPES_BEGIN
#define ZQ_PLUGIN_C_TYPES_END
#endif

// Defines the pack's two entry points over `pack`, an expression giving the pack's
// zq::plugin::ComponentPack& (evaluated at each call). Use once, at namespace scope.
#define ZQ_COMPONENT_PACK(pack)                                                                             \
  ZQ_PLUGIN_C_TYPES_BEGIN                                                                                   \
  extern "C" ZQ_PLUGIN_EXPORT std::set<std::string>& enumeratePluginComponents() { return (pack).names(); } \
  extern "C" ZQ_PLUGIN_EXPORT ::zq::IComponent* createPluginComponent(const std::string& name) {            \
    return (pack).create(name);                                                                             \
  }                                                                                                         \
  ZQ_PLUGIN_C_TYPES_END
