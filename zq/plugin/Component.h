// plugin::Component: a ready-made IComponent that keeps the tables of interfaces and
// capabilities the loader reads.
#pragma once

#include <zq/Export.h>
#include <zq/plugin/IInterface.h>

#include <map>
#include <set>
#include <string>

namespace zq {
namespace plugin {

// Base of plug-in components. A subclass calls addInterface in its constructor for each
// interface it implements, and overrides getInterface for those whose pointers callers ask
// for: the tables and getInterface are not connected, so a component can be listed under
// an interface for which getInterface still answers null.
// Not thread-safe while being filled; reading a filled component from many threads is.
class ZQ_API Component : public IComponent {
 public:
  Component();
  Component(const Component& other);
  // Leaves `other` with both tables empty.
  Component(Component&& other) noexcept;
  Component& operator=(const Component& other);
  // Takes over `other`'s tables and leaves it with empty ones.
  Component& operator=(Component&& other) noexcept;
  ~Component() override;

  const std::set<std::string>& interfaceIds() const override;
  // The stored set, or the shared empty set when `interfaceId` was never added.
  const std::set<std::string>& capabilities(const std::string& interfaceId) const override;
  // Records the interface with a copy of its capabilities. The first call for an identifier
  // wins: a later call with the same identifier changes nothing.
  virtual void addInterface(const std::string& interfaceId, const std::set<std::string>& capabilities);

 protected:
  // Empty sets shared by all components for the life of the process, so a reference to one
  // stays valid whatever order things are torn down in.
  static const std::set<std::string>& k_emptyInterfaceIds;
  static const std::set<std::string>& k_emptyCapabilities;

 private:
  std::set<std::string> m_interfaceIds;
  std::map<std::string, std::set<std::string>> m_capabilities;
};

}  // namespace plugin
}  // namespace zq
