// A pack whose component, as it is made, deletes the file that ZQ_TEST_REMOVE_PACK names: a pack
// that binding has listed but not yet loaded vanishes under it.
#include "TestComponent.h"

#include <cstdio>
#include <cstdlib>

namespace {

zq::plugin::ComponentPack& pack() {
  static zq::plugin::ComponentPack table = zq::plugin::ComponentPack().add("remover.Component", []() {
    if (const char* path = std::getenv("ZQ_TEST_REMOVE_PACK")) std::remove(path);
    return zqtest::make("Remover/remover.Component", {{"test::INamed", {"Remover"}}}, true)();
  });
  return table;
}

}  // namespace

ZQ_COMPONENT_PACK(pack())
