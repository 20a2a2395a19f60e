// The contract of plug-in objects: interfaces asked for by name, and what a component offers.
//
// An interface is identified by a plain string, the qualified name of its class, offered by
// a static ID() and compared byte by byte. Type information plays no part, so the contract
// holds between libraries that each carry their own copy of an interface's type data.
//
// A class that offers an interface overrides the non-const getInterface and, for that
// interface's ID(), returns a pointer to its subobject of exactly that type: callers cast
// the void* straight to the interface and call through it.
#pragma once

#include <zq/Export.h>

#include <set>
#include <string>

namespace zq {

// The root of every interface. Not thread-safe beyond what an overrider makes it.
class ZQ_API IInterface {
 public:
  IInterface() = default;
  IInterface(const IInterface&) = default;
  IInterface& operator=(const IInterface&) = default;
  virtual ~IInterface();

  // Calls the non-const form, so that overriding that one alone governs both.
  virtual const void* getInterface(const char* id) const;
  // This object for "zq::IInterface", null for anything else. `id` is never null.
  virtual void* getInterface(const char* id);

  static const char* ID();  // "zq::IInterface"
};

// A plain root interface object, for classes that want IInterface as an ordinary base.
class ZQ_API InterfaceStub : public IInterface {
 public:
  InterfaceStub() = default;
  InterfaceStub(const InterfaceStub&) = default;
  InterfaceStub(InterfaceStub&&) = default;
  InterfaceStub& operator=(const InterfaceStub&) = default;
  InterfaceStub& operator=(InterfaceStub&&) = default;
  ~InterfaceStub() override;
};

// What every plug-in component offers: the interfaces it implements, and under each the
// capabilities it claims. Capabilities are arbitrary strings that only the plug-ins and
// their users give meaning to. The loader asks these from any thread once a component is
// made, so implementations keep them fixed after construction. A component runs code of the
// library that made it, which must stay open while the component lives.
class ZQ_API IComponent : public virtual IInterface {
 public:
  IComponent() = default;
  IComponent(const IComponent&) = default;
  IComponent(IComponent&&) = default;
  IComponent& operator=(const IComponent&) = default;
  IComponent& operator=(IComponent&&) = default;
  ~IComponent() override;

  virtual const std::set<std::string>& interfaceIds() const = 0;
  // The capabilities under `interfaceId`; empty for an interface the component doesn't offer.
  virtual const std::set<std::string>& capabilities(const std::string& interfaceId) const = 0;

  static const char* ID();  // "zq::IComponent"
};

// Offered by components whose texts can change language at run time. The loader tells them
// the language when the program sets it; they are not told when they are made. Called on
// the program's thread, never concurrently by the loader.
class ZQ_API ICanBeLocalized : public virtual IInterface {
 public:
  ICanBeLocalized() = default;
  ICanBeLocalized(const ICanBeLocalized&) = default;
  ICanBeLocalized(ICanBeLocalized&&) = default;
  ICanBeLocalized& operator=(const ICanBeLocalized&) = default;
  ICanBeLocalized& operator=(ICanBeLocalized&&) = default;
  ~ICanBeLocalized() override;

  // Whether the component took the language; the loader does not look at the answer.
  virtual bool setLanguage(const std::wstring& language) = 0;

  static const char* ID();  // "zq::ICanBeLocalized"
};

}  // namespace zq
