// Commands over the plug-in system.
#include "Command.h"

#include <zq/foundation/Exception.h>
#include <zq/foundation/Text.h>
#include <zq/plugin/Loader.h>

#include <boost/shared_ptr.hpp>

#include <exception>
#include <iostream>
#include <list>
#include <memory>
#include <set>
#include <string>

namespace {

using zq::plugin::Loader;

// Opens one library the way the loader does and prints its components with their
// interfaces and capabilities. The library stays open until the tool ends: the components
// it made run its code until they are gone.
void describePack(const std::wstring& path) {
  std::cout << zq::convert(path) << "\n";
  Loader::SharedLibraryHandle* handle = Loader::createHandle();
  try {
    Loader::loadSharedLibrary(*handle, path);
    auto enumerate =
        reinterpret_cast<Loader::EnumerateFunction>(Loader::getFunctionPtr(*handle, "enumeratePluginComponents"));
    auto create = reinterpret_cast<Loader::CreateFunction>(Loader::getFunctionPtr(*handle, "createPluginComponent"));
    const std::set<std::string> names = enumerate();
    if (names.empty()) std::cout << "  (no components)\n";
    for (const std::string& name : names) {
      std::cout << "  " << name << "\n";
      boost::shared_ptr<zq::IComponent> component;
      try {
        component.reset(create(name));
      } catch (const std::exception& e) {
        std::cout << "    (could not be created: " << e.what() << ")\n";
        continue;
      }
      if (!component) {
        std::cout << "    (could not be created)\n";
        continue;
      }
      for (const std::string& interfaceId : component->interfaceIds()) {
        std::cout << "    " << interfaceId;
        const std::set<std::string>& capabilities = component->capabilities(interfaceId);
        if (!capabilities.empty()) std::cout << ":";
        for (const std::string& capability : capabilities) std::cout << " " << capability;
        std::cout << "\n";
      }
    }
  } catch (const std::exception& e) {
    std::cout << "  not usable: " << e.what() << "\n";
  }
  Loader::destroyHandle(handle);
}

int pluginsCommand(const std::string& folder) {
  const std::list<std::wstring> folders =
      folder.empty() ? Loader::defaultSearchPaths() : std::list<std::wstring>{zq::wconvert(folder)};
  for (const std::wstring& f : folders) {
    std::list<std::wstring> packs;
    try {
      packs = Loader::listSharedLibraries(f);
    } catch (const zq::Exception& e) {
      throw zqtool::Failure("plugins: " + zq::convert(f) + ": " + e.what());
    }
    if (packs.empty()) std::cout << "no component packs in " << zq::convert(f) << "\n";
    for (const std::wstring& pack : packs) describePack(pack);
  }
  return 0;
}

const bool registered = zqtool::registerCommands([](CLI::App& app) {
  auto folder = std::make_shared<std::string>();
  zqtool::addCommand(app, "plugins", "component packs and their components (default: PlugIns beside zq)", [folder] {
    return pluginsCommand(*folder);
  })->add_option("FOLDER", *folder, "folder of component packs");
});

}  // namespace
