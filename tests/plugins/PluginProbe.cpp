// zq_plugin_probe: binds the packs beside itself and runs the queries named on its command
// line, writing the log and the answers to standard output, for tests that need a fresh
// process and a PlugIns folder of their own.
//   list IFACE CAP      the origins of listComponents, in order
//   get IFACE CAP       the origin of getComponentInterface, or "null"
//   language LANG       setLanguageOfComponents, then each probe-able component's language
#include "TestComponent.h"

#include <zq/foundation/Log.h>
#include <zq/plugin/Loader.h>

#include <iostream>
#include <list>
#include <string>

namespace {

std::wstring originOf(const boost::shared_ptr<zq::IComponent>& component) {
  if (!component) return L"null";
  zq::IInterface& root = *component;
  auto* probe = static_cast<zqtest::IProbe*>(root.getInterface(zqtest::IProbe::ID()));
  return probe ? zq::wconvert(probe->origin()) : L"?";
}

}  // namespace

int main(int argc, char** argv) {
  zq::Log& log = zq::Log::instance();
  for (int level = zq::Log::Debug; level <= zq::Log::Fatal; ++level)
    log.setStream(static_cast<zq::Log::ELevel>(level), &std::wcout, false);
  log.setDebugLogLevel();

  zq::plugin::Loader& loader = zq::plugin::Loader::instance();
  for (int i = 1; i < argc; ++i) {
    const std::string action = argv[i];
    if ((action == "list" || action == "get") && i + 2 < argc) {
      const std::string interfaceId = argv[++i];
      const std::string capability = argv[++i];
      // Ask first: the query may log, and its line must not split the answer's.
      std::list<boost::shared_ptr<zq::IComponent>> found;
      if (action == "list")
        found = loader.listComponents(interfaceId, capability);
      else
        found.push_back(loader.getComponentInterface(interfaceId, capability));
      std::wcout << zq::wconvert(action) << L":";
      for (const auto& component : found) std::wcout << L" " << originOf(component);
      std::wcout << std::endl;
    } else if (action == "language" && i + 1 < argc) {
      loader.setLanguageOfComponents(zq::wconvert(std::string(argv[++i])));
      const auto components = loader.listComponents(zqtest::IProbe::ID(), "");
      std::wcout << L"language:";
      for (const auto& component : components) {
        zq::IInterface& root = *component;
        auto* probe = static_cast<zqtest::IProbe*>(root.getInterface(zqtest::IProbe::ID()));
        std::wcout << L" " << zq::wconvert(probe->origin()) << L"=" << probe->language();
      }
      std::wcout << std::endl;
    } else {
      std::wcout << L"unknown action " << zq::wconvert(action) << std::endl;
      return 2;
    }
  }
  return 0;
}
