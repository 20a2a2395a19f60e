// The component the test packs are made of: it knows which pack made it and the language it
// was last told, and offers ICanBeLocalized when asked to.
#pragma once

#include <zq/plugin/Component.h>
#include <zq/plugin/ComponentPack.h>

#include <boost/shared_ptr.hpp>

#include <cstring>
#include <map>
#include <set>
#include <string>

namespace zqtest {

class TestComponent : public zq::plugin::Component, public zq::ICanBeLocalized {
 public:
  typedef std::map<std::string, std::set<std::string>> Interfaces;
  // Answered with the object itself: tests read its members without type information
  // crossing the libraries.
  static const char* ID() { return "zqtest::TestComponent"; }

  TestComponent(const std::string& origin, const Interfaces& interfaces, bool localizable)
      : origin(origin), localizable(localizable) {
    addInterface(ID(), {});
    if (localizable) addInterface(zq::ICanBeLocalized::ID(), {});
    for (const auto& entry : interfaces) addInterface(entry.first, entry.second);
  }

  using zq::plugin::Component::getInterface;
  void* getInterface(const char* id) override {
    if (std::strcmp(id, ID()) == 0) return this;
    if (localizable && std::strcmp(id, zq::ICanBeLocalized::ID()) == 0) return static_cast<zq::ICanBeLocalized*>(this);
    return zq::plugin::Component::getInterface(id);
  }
  bool setLanguage(const std::wstring& value) override {
    language = value;
    return true;
  }

  const std::string origin;  // "Pack/component.name"
  const bool localizable;
  std::wstring language;
};

inline zq::plugin::ComponentPack::Factory make(const std::string& origin, const TestComponent::Interfaces& interfaces,
                                               bool localizable = false) {
  return [=]() -> zq::IComponent* { return new TestComponent(origin, interfaces, localizable); };
}

// The test component behind `component`; null for an empty pointer or another component.
inline TestComponent* testComponent(const boost::shared_ptr<zq::IComponent>& component) {
  return component ? static_cast<TestComponent*>(component->getInterface(TestComponent::ID())) : nullptr;
}

}  // namespace zqtest
