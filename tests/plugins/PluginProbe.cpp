// zq_plugin_probe: binds the packs beside itself, tells the components the language "fr",
// and prints the log bodies, then "components:" with each test component's origin=language.
#include "TestComponent.h"
#include "tests/support/LogCapture.h"

#include <zq/plugin/Loader.h>

#include <iostream>

int main() {
  zq::test::LogCapture log;
  zq::plugin::Loader& loader = zq::plugin::Loader::instance();
  loader.setLanguageOfComponents(L"fr");
  std::string found = "components:";
  for (const auto& component : loader.listComponents(zqtest::TestComponent::ID(), "")) {
    const zqtest::TestComponent* test = zqtest::testComponent(component);
    found += " " + test->origin + "=" + zq::convert(test->language);
  }
  for (const std::string& line : log.bodies()) std::cout << line << '\n';
  std::cout << found << std::endl;
}
