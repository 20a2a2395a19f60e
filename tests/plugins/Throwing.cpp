// The second of three components throws while being made.
#include "TestComponent.h"

#include <stdexcept>

namespace {

zq::plugin::ComponentPack& pack() {
  static zq::plugin::ComponentPack table =
      zq::plugin::ComponentPack()
          .add("throwing.A", zqtest::make("Throwing/throwing.A", {{"test::IThrowing", {"a"}}}))
          .add("throwing.B", []() -> zq::IComponent* { throw std::runtime_error("component B refused"); })
          .add("throwing.C", zqtest::make("Throwing/throwing.C", {{"test::IThrowing", {"c"}}}));
  return table;
}

}  // namespace

ZQ_COMPONENT_PACK(pack())
