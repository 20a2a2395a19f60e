// One name whose creation fails with a null pointer, one that works.
#include "TestComponent.h"

namespace {

zq::plugin::ComponentPack& pack() {
  static zq::plugin::ComponentPack table =
      zq::plugin::ComponentPack()
          .add("partial.Broken", []() -> zq::IComponent* { return nullptr; })
          .add("partial.Working", zqtest::make("Partial/partial.Working", {{"test::IShape", {"2d"}}}));
  return table;
}

}  // namespace

ZQ_COMPONENT_PACK(pack())
