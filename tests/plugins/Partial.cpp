// Made in name order: one component, one whose factory gives null, one whose factory throws,
// and one never reached.
#include "TestComponent.h"

#include <stdexcept>

namespace {

zq::plugin::ComponentPack& pack() {
  static zq::plugin::ComponentPack table =
      zq::plugin::ComponentPack()
          .add("partial.a", zqtest::make("Partial/partial.a", {{"test::IShape", {"2d"}}}))
          .add("partial.b.null", []() -> zq::IComponent* { return nullptr; })
          .add("partial.c.throws", []() -> zq::IComponent* { throw std::runtime_error("component c refused"); })
          .add("partial.d.unreached", zqtest::make("Partial/partial.d.unreached", {{"test::IShape", {"2d"}}}));
  return table;
}

}  // namespace

ZQ_COMPONENT_PACK(pack())
