#include <zq/plugin/Component.h>

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>

namespace {

using zq::plugin::Component;
typedef std::set<std::string> Names;

// Exposes the shared empty set.
struct Probe : Component {
  static const Names& emptyCapabilities() { return k_emptyCapabilities; }
};

Component filled() {
  Component c;
  c.addInterface("demo::IClock", {"alarm", "utc"});
  c.addInterface("demo::IClock", {"local"});  // the first wins
  c.addInterface("demo::IEcho", {});
  return c;
}

TEST(ComponentTest, TablesKeepTheFirstAddAndAnswerUnknownsWithTheSharedEmptySet) {
  const Component c = filled();
  EXPECT_EQ(c.interfaceIds(), (Names{"demo::IClock", "demo::IEcho"}));
  EXPECT_EQ(c.capabilities("demo::IClock"), (Names{"alarm", "utc"}));
  EXPECT_EQ(&c.capabilities("demo::INone"), &Probe::emptyCapabilities());
  EXPECT_EQ(&Component().capabilities(""), &Probe::emptyCapabilities());
  EXPECT_TRUE(Probe::emptyCapabilities().empty());
  // An interface added without capabilities has a set of its own; asking inserts nothing.
  EXPECT_NE(&c.capabilities("demo::IEcho"), &Probe::emptyCapabilities());
  EXPECT_EQ(c.interfaceIds().size(), 2u);
}

TEST(ComponentTest, ListedInterfacesAreNotAnsweredByGetInterface) {
  Component c = filled();
  c.addInterface(zq::IComponent::ID(), {});
  EXPECT_EQ(static_cast<const Component&>(c).getInterface("zq::IComponent"), nullptr);
  EXPECT_EQ(c.getInterface("demo::IClock"), nullptr);
  EXPECT_EQ(c.getInterface("zq::IInterface"), static_cast<zq::IInterface*>(&c));
}

TEST(ComponentTest, CopyAndMove) {
  const Component source = filled();
  Component copy(source);
  Component moved(std::move(copy));
  EXPECT_EQ(moved.capabilities("demo::IClock"), source.capabilities("demo::IClock"));
  // NOLINTNEXTLINE(bugprone-use-after-move): the moved-from state is what is checked
  EXPECT_TRUE(copy.interfaceIds().empty() && copy.capabilities("demo::IClock").empty());

  Component target;
  target.addInterface("demo::IOld", {"x"});
  target = std::move(moved);
  EXPECT_EQ(target.interfaceIds(), source.interfaceIds());
  // The source gets the target's cleared tables, not its old content, and stays usable.
  // NOLINTNEXTLINE(bugprone-use-after-move)
  EXPECT_TRUE(moved.interfaceIds().empty() && moved.capabilities("demo::IOld").empty());
  moved.addInterface("demo::IReused", {"y"});
  EXPECT_EQ(moved.capabilities("demo::IReused"), Names{"y"});

  target = moved;
  EXPECT_EQ(target.interfaceIds(), Names{"demo::IReused"});
  Component& alias = target;
  target = alias;
  target = std::move(alias);
  EXPECT_EQ(target.capabilities("demo::IReused"), Names{"y"});
}

}  // namespace
