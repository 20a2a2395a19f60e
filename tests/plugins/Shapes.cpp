// Two components with several interfaces and capabilities; the circle can be localized.
#include "TestComponent.h"

namespace {

zq::plugin::ComponentPack& pack() {
  static zq::plugin::ComponentPack table =
      zq::plugin::ComponentPack()
          .add("shapes.Circle", zqtest::make("Shapes/shapes.Circle",
                                             {{"test::IShape", {"2d", "round"}}, {"test::IDrawable", {"svg"}}}, true))
          .add("shapes.Square", zqtest::make("Shapes/shapes.Square", {{"test::IShape", {"2d", "corners"}}}));
  return table;
}

}  // namespace

ZQ_COMPONENT_PACK(pack())
