#include <zq/plugin/IInterface.h>

#include <cstring>

namespace zq {

IInterface::~IInterface() = default;

const void* IInterface::getInterface(const char* id) const {
  // Through the non-const slot, so a subclass overrides one function, not two.
  return const_cast<IInterface*>(this)->getInterface(id);
}

void* IInterface::getInterface(const char* id) { return std::strcmp(id, ID()) == 0 ? this : nullptr; }

const char* IInterface::ID() { return "zq::IInterface"; }

InterfaceStub::~InterfaceStub() = default;

IComponent::~IComponent() = default;

const char* IComponent::ID() { return "zq::IComponent"; }

ICanBeLocalized::~ICanBeLocalized() = default;

const char* ICanBeLocalized::ID() { return "zq::ICanBeLocalized"; }

}  // namespace zq
