#include <zq/plugin/Component.h>

#include <utility>

namespace zq {
namespace plugin {

// Never destroyed: components that outlive static destruction may still hand them out.
const std::set<std::string>& Component::k_emptyInterfaceIds = *new std::set<std::string>();
const std::set<std::string>& Component::k_emptyCapabilities = *new std::set<std::string>();

Component::Component() = default;

Component::Component(const Component& other)
    : IInterface(other),
      IComponent(other),
      m_interfaceIds(other.m_interfaceIds),
      m_capabilities(other.m_capabilities) {}

Component::Component(Component&& other) noexcept
    : IInterface(other),
      IComponent(std::move(other)),
      m_interfaceIds(std::move(other.m_interfaceIds)),
      m_capabilities(std::move(other.m_capabilities)) {
  // A moved-from container is only "valid but unspecified"; the contract says empty. Only the
  // base part was moved above, so these members are still ours to touch.
  other.m_interfaceIds.clear();  // NOLINT(bugprone-use-after-move)
  other.m_capabilities.clear();
}

Component& Component::operator=(const Component& other) {
  if (this != &other) {
    m_interfaceIds = other.m_interfaceIds;
    m_capabilities = other.m_capabilities;
  }
  return *this;
}

Component& Component::operator=(Component&& other) noexcept {
  if (this != &other) {
    m_interfaceIds.clear();
    m_capabilities.clear();
    m_interfaceIds.swap(other.m_interfaceIds);
    m_capabilities.swap(other.m_capabilities);
  }
  return *this;
}

Component::~Component() = default;

const std::set<std::string>& Component::interfaceIds() const { return m_interfaceIds; }

const std::set<std::string>& Component::capabilities(const std::string& interfaceId) const {
  const auto found = m_capabilities.find(interfaceId);
  return found != m_capabilities.end() ? found->second : k_emptyCapabilities;
}

void Component::addInterface(const std::string& interfaceId, const std::set<std::string>& capabilities) {
  m_interfaceIds.insert(interfaceId);
  m_capabilities.insert(std::make_pair(interfaceId, capabilities));
}

}  // namespace plugin
}  // namespace zq
