#include "tests/plugins/TestComponent.h"

#include <zq/plugin/IInterface.h>

#include <gtest/gtest.h>

namespace {

TEST(IInterfaceTest, RootAnswersItsOwnIdentifierOnly) {
  zq::IInterface root;
  zq::InterfaceStub stub;
  for (zq::IInterface* object : {&root, static_cast<zq::IInterface*>(&stub)}) {
    const zq::IInterface* constObject = object;
    EXPECT_EQ(object->getInterface("zq::IInterface"), object);
    EXPECT_EQ(constObject->getInterface("zq::IInterface"), object);
    for (const char* other : {"zq::iinterface", "zq::IInterface ", ""}) {
      EXPECT_EQ(object->getInterface(other), nullptr) << other;
      EXPECT_EQ(constObject->getInterface(other), nullptr) << other;
    }
  }
  EXPECT_EQ(std::string(zq::IComponent::ID()) + " " + zq::ICanBeLocalized::ID(), "zq::IComponent zq::ICanBeLocalized");
}

// The test component overrides the non-const form alone, as plug-ins do.
TEST(IInterfaceTest, ConstFormFollowsTheNonConstOverride) {
  zqtest::TestComponent component("Test/c", {}, true);
  const zq::IInterface& root = component;
  const void* found = root.getInterface(zq::ICanBeLocalized::ID());
  ASSERT_NE(found, nullptr);
  // The pointer is the interface's own subobject, usable after a plain cast.
  static_cast<zq::ICanBeLocalized*>(const_cast<void*>(found))->setLanguage(L"fr");
  EXPECT_EQ(component.language, L"fr");
  EXPECT_EQ(root.getInterface(zq::IInterface::ID()), static_cast<const zq::IInterface*>(&component));
}

}  // namespace
