#include <zq/plugin/Component.h>
#include <zq/plugin/IInterface.h>

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <utility>

namespace {

using zq::plugin::Component;

TEST(IInterfaceTest, RootAnswersItsOwnIdentifierOnly) {
  zq::IInterface root;
  zq::InterfaceStub stub;
  for (zq::IInterface* object : {&root, static_cast<zq::IInterface*>(&stub)}) {
    const zq::IInterface* constObject = object;
    EXPECT_EQ(object->getInterface("zq::IInterface"), object);
    EXPECT_EQ(constObject->getInterface("zq::IInterface"), object);
    for (const char* other : {"zq::IComponent", "zq::iinterface", "zq::IInterface ", ""}) {
      EXPECT_EQ(object->getInterface(other), nullptr) << other;
      EXPECT_EQ(constObject->getInterface(other), nullptr) << other;
    }
  }
  EXPECT_STREQ(zq::IInterface::ID(), "zq::IInterface");
  EXPECT_STREQ(zq::IComponent::ID(), "zq::IComponent");
  EXPECT_STREQ(zq::ICanBeLocalized::ID(), "zq::ICanBeLocalized");
}

// Overrides the non-const form alone, as plug-ins do.
class Localizable : public Component, public zq::ICanBeLocalized {
 public:
  using Component::getInterface;
  void* getInterface(const char* id) override {
    if (std::strcmp(id, zq::ICanBeLocalized::ID()) == 0) return static_cast<zq::ICanBeLocalized*>(this);
    return Component::getInterface(id);
  }
  bool setLanguage(const std::wstring& language) override {
    language_ = language;
    return true;
  }
  std::wstring language_;
};

TEST(IInterfaceTest, ConstFormFollowsTheNonConstOverride) {
  Localizable component;
  const zq::IInterface& root = component;
  const void* found = root.getInterface(zq::ICanBeLocalized::ID());
  ASSERT_NE(found, nullptr);
  // The pointer is the interface's own subobject, usable after a plain cast.
  static_cast<zq::ICanBeLocalized*>(const_cast<void*>(found))->setLanguage(L"fr");
  EXPECT_EQ(component.language_, L"fr");
  EXPECT_EQ(root.getInterface(zq::IInterface::ID()), static_cast<const zq::IInterface*>(&component));
}

}  // namespace
