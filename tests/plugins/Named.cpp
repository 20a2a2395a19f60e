// One component, named by the build: PACK_NAME is the pack, COMPONENT_NAME the component.
// Serves the release/debug twins, the lone debug build and the packs sharing a name.
#include "TestComponent.h"

namespace {

zq::plugin::ComponentPack& pack() {
  static zq::plugin::ComponentPack table = zq::plugin::ComponentPack().add(
      COMPONENT_NAME, zqtest::make(PACK_NAME "/" COMPONENT_NAME, {{"test::INamed", {PACK_NAME}}}, true));
  return table;
}

}  // namespace

ZQ_COMPONENT_PACK(pack())
