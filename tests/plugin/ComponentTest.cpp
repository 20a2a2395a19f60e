#include <zq/plugin/Component.h>

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>

namespace {

using zq::plugin::Component;
typedef std::set<std::string> Names;

// Exposes the shared empty sets.
class Probe : public Component {
 public:
  static const Names& emptyIds() { return k_emptyInterfaceIds; }
  static const Names& emptyCapabilities() { return k_emptyCapabilities; }
};

Component filled() {
  Component c;
  c.addInterface("demo::IClock", {"alarm", "utc"});
  c.addInterface("demo::IEcho", {});
  return c;
}

TEST(ComponentTest, FirstAddInterfaceWins) {
  Component c;
  c.addInterface("demo::IClock", {"alarm"});
  c.addInterface("demo::IClock", {"utc", "local"});
  EXPECT_EQ(c.interfaceIds(), Names{"demo::IClock"});
  EXPECT_EQ(c.capabilities("demo::IClock"), Names{"alarm"});
}

TEST(ComponentTest, UnknownInterfaceGivesTheSharedEmptySet) {
  const Component c = filled();
  const Names& unknown = c.capabilities("demo::INone");
  EXPECT_TRUE(unknown.empty());
  EXPECT_EQ(&unknown, &Probe::emptyCapabilities());
  EXPECT_EQ(&c.capabilities(""), &unknown);
  EXPECT_EQ(&Component().capabilities("demo::INone"), &unknown);
  EXPECT_TRUE(Probe::emptyIds().empty());
  // Asking never inserts.
  EXPECT_EQ(c.interfaceIds(), (Names{"demo::IClock", "demo::IEcho"}));
  // An interface added without capabilities has a set of its own, not the shared one.
  EXPECT_TRUE(c.capabilities("demo::IEcho").empty());
  EXPECT_NE(&c.capabilities("demo::IEcho"), &unknown);
}

TEST(ComponentTest, ListedInterfacesAreNotAnsweredByGetInterface) {
  Component c = filled();
  c.addInterface(zq::IComponent::ID(), {});
  const Component& constC = c;
  EXPECT_EQ(c.getInterface("zq::IComponent"), nullptr);
  EXPECT_EQ(constC.getInterface("zq::IComponent"), nullptr);
  EXPECT_EQ(c.getInterface("demo::IClock"), nullptr);
  EXPECT_EQ(c.getInterface("zq::IInterface"), static_cast<zq::IInterface*>(&c));
}

TEST(ComponentTest, CopyAndMove) {
  const Component source = filled();
  Component copy(source);
  EXPECT_EQ(copy.interfaceIds(), source.interfaceIds());
  EXPECT_EQ(copy.capabilities("demo::IClock"), (Names{"alarm", "utc"}));

  Component moved(std::move(copy));
  EXPECT_EQ(moved.capabilities("demo::IClock"), (Names{"alarm", "utc"}));
  EXPECT_TRUE(copy.interfaceIds().empty());
  EXPECT_TRUE(copy.capabilities("demo::IClock").empty());

  Component target;
  target.addInterface("demo::IOld", {"x"});
  target = std::move(moved);
  EXPECT_EQ(target.interfaceIds(), source.interfaceIds());
  EXPECT_TRUE(target.capabilities("demo::IOld").empty());
  // The source gets the target's cleared tables, not its old content.
  EXPECT_TRUE(moved.interfaceIds().empty());
  EXPECT_TRUE(moved.capabilities("demo::IOld").empty());
  moved.addInterface("demo::IReused", {"y"});  // still usable
  EXPECT_EQ(moved.capabilities("demo::IReused"), Names{"y"});

  Component assigned;
  assigned.addInterface("demo::IOld", {"x"});
  assigned = source;
  EXPECT_EQ(assigned.interfaceIds(), source.interfaceIds());

  Component& alias = assigned;
  assigned = alias;
  assigned = std::move(alias);
  EXPECT_EQ(assigned.interfaceIds(), source.interfaceIds());
  EXPECT_EQ(assigned.capabilities("demo::IClock"), (Names{"alarm", "utc"}));
}

}  // namespace
