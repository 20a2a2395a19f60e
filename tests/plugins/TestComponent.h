// A component the test packs are made of: it tells which pack made it and what language it
// was last told, and offers ICanBeLocalized when asked to.
#pragma once

#include <zq/plugin/Component.h>
#include <zq/plugin/ComponentPack.h>

#include <cstring>
#include <map>
#include <set>
#include <string>

namespace zqtest {

// Lets tests tell components apart without type information crossing the libraries.
class IProbe : public virtual zq::IInterface {
 public:
  static const char* ID() { return "zqtest::IProbe"; }
  // "Pack/component.name"
  virtual std::string origin() const = 0;
  virtual std::wstring language() const = 0;
};

class TestComponent : public zq::plugin::Component, public zq::ICanBeLocalized, public IProbe {
 public:
  typedef std::map<std::string, std::set<std::string>> Interfaces;

  TestComponent(const std::string& origin, const Interfaces& interfaces, bool localizable)
      : m_origin(origin), m_localizable(localizable) {
    addInterface(IProbe::ID(), {});
    if (localizable) addInterface(zq::ICanBeLocalized::ID(), {});
    for (const auto& entry : interfaces) addInterface(entry.first, entry.second);
  }

  using zq::plugin::Component::getInterface;
  void* getInterface(const char* id) override {
    if (std::strcmp(id, IProbe::ID()) == 0) return static_cast<IProbe*>(this);
    if (m_localizable && std::strcmp(id, zq::ICanBeLocalized::ID()) == 0)
      return static_cast<zq::ICanBeLocalized*>(this);
    return zq::plugin::Component::getInterface(id);
  }

  bool setLanguage(const std::wstring& language) override {
    m_language = language;
    return true;
  }
  std::string origin() const override { return m_origin; }
  std::wstring language() const override { return m_language; }

 private:
  std::string m_origin;
  bool m_localizable;
  std::wstring m_language;
};

// A factory for a pack's table.
inline zq::plugin::ComponentPack::Factory make(const std::string& origin, const TestComponent::Interfaces& interfaces,
                                               bool localizable = false) {
  return [=]() -> zq::IComponent* { return new TestComponent(origin, interfaces, localizable); };
}

}  // namespace zqtest
