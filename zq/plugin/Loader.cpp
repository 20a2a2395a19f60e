#include <zq/plugin/Loader.h>

#include <zq/foundation/Exception.h>
#include <zq/foundation/Log.h>
#include <zq/foundation/Text.h>
#include <zq/platform/SharedLibrary.h>

#include <exception>
#include <stdexcept>
#include <vector>

namespace zq {
namespace plugin {

struct Loader::SharedLibraryHandle {
  void* module;
};

// In this order: the debug ending is made of the two before it.
const std::string Loader::k_ignoreInterfaces;
const std::string Loader::k_ignoreCapabilities;
const std::wstring Loader::k_pluginDir = L"PlugIns";
const std::wstring Loader::k_debugSuffix = L"d";
const std::wstring Loader::k_sharedSuffix = L".so";
const std::wstring Loader::k_complete_debug_suffix = Loader::k_debugSuffix + Loader::k_sharedSuffix;

std::atomic<Loader*> Loader::s_instance{nullptr};
std::mutex Loader::s_mutex;

namespace {

const char* const kEnumerateName = "enumeratePluginComponents";
const char* const kCreateName = "createPluginComponent";
const char* const kInvalidPosition = "invalid string position";
const wchar_t kSeparator = L'/';

// Lets a log statement print an exception with its causes, only when the line is written.
struct Printed {
  const Exception& exception;
};
std::wostream& operator<<(std::wostream& os, const Printed& printed) { return printed.exception.writeTo(os); }

}  // namespace

// ---- shared libraries ----------------------------------------------------------------------

// Empty rather than unset, so that a box never opened can't hand the system a stray value.
Loader::SharedLibraryHandle* Loader::createHandle() { return new SharedLibraryHandle(); }

void Loader::destroyHandle(SharedLibraryHandle* handle) { delete handle; }

void Loader::loadSharedLibrary(SharedLibraryHandle& handle, const std::wstring& path) {
  std::string reason;
  handle.module = platform::openLibrary(path, reason);
  if (!handle.module) throw RuntimeError("Error loading shared library \"" + convert(path) + "\" : " + reason);
}

void Loader::unloadSharedLibrary(SharedLibraryHandle& handle) { platform::closeLibrary(handle.module); }

void* Loader::getFunctionPtr(SharedLibraryHandle& handle, const std::string& name) {
  std::string reason;
  void* address = platform::findSymbol(handle.module, name, reason);
  if (!address) throw RuntimeError("Error getting function \"" + name + "\": " + reason);
  return address;
}

std::wstring Loader::getErrorMessage(unsigned long code) {
  return platform::widePath(platform::errorText(static_cast<int>(code)));
}

std::list<std::wstring> Loader::listSharedLibraries(const std::wstring& directory) {
  std::vector<std::wstring> paths;
  int error = 0;
  if (!platform::listFolder(directory, k_sharedSuffix, paths, error))
    throw RuntimeError(convert(getErrorMessage(static_cast<unsigned long>(error))));
  return std::list<std::wstring>(paths.begin(), paths.end());
}

std::list<std::wstring> Loader::defaultSearchPaths() {
  std::wstring executable;
  int error = 0;
  if (!platform::executablePath(executable, error))
    throw RuntimeError(convert(getErrorMessage(static_cast<unsigned long>(error))));
  const std::size_t cut = executable.rfind(kSeparator);
  if (cut == std::wstring::npos) throw std::out_of_range(kInvalidPosition);
  return std::list<std::wstring>(1, executable.substr(0, cut) + kSeparator + k_pluginDir);
}

bool Loader::isDebugLib(const std::wstring& path) {
  const std::size_t length = k_complete_debug_suffix.size();
  if (path.size() < length) throw std::out_of_range(kInvalidPosition);
  return path.compare(path.size() - length, length, k_complete_debug_suffix) == 0;
}

bool Loader::isReleaseLib(const std::wstring& path) { return !isDebugLib(path); }

bool Loader::shouldLoad(const std::wstring& path, const std::multiset<std::wstring>& libraries) {
  if (!isDebugLib(path)) return true;
  // The test is on names alone: "Food.so" passes for the debug build of "Foo.so".
  const std::wstring releaseTwin = path.substr(0, path.size() - k_complete_debug_suffix.size()) + k_sharedSuffix;
  if (libraries.count(releaseTwin) != 0) return false;
  ZQ_LOG(Log::Warning, "zq::plugin::Loader::shouldLoad",
         "Plugin loader: Trying to load debug version of \"" << path << "\" because release version is not found.");
  return true;
}

// ---- pack entries ----------------------------------------------------------------------------

Loader::ComponentPackEntry::ComponentPackEntry() : handle(nullptr), enumerate(nullptr), create(nullptr) {}

Loader::ComponentPackEntry::ComponentPackEntry(const ComponentPackEntry& other)
    : path(other.path), handle(nullptr), enumerate(other.enumerate), create(other.create) {
  if (other.handle) {
    handle = createHandle();
    handle->module = other.handle->module;
  }
}

Loader::ComponentPackEntry& Loader::ComponentPackEntry::operator=(const ComponentPackEntry& other) {
  if (this == &other) return *this;
  path = other.path;
  enumerate = other.enumerate;
  create = other.create;
  destroyHandle(handle);
  handle = nullptr;
  if (other.handle) {
    handle = createHandle();
    handle->module = other.handle->module;
  }
  return *this;
}

Loader::ComponentPackEntry::~ComponentPackEntry() { destroyHandle(handle); }

// ---- the singleton -----------------------------------------------------------------------------

Loader& Loader::instance() {
  if (Loader* loader = s_instance.load(std::memory_order_acquire)) return *loader;
  std::lock_guard<std::mutex> lock(s_mutex);
  Loader* loader = s_instance.load(std::memory_order_relaxed);
  if (!loader) {
    loader = new Loader();
    s_instance.store(loader, std::memory_order_release);
  }
  return *loader;
}

void Loader::shutdown() {
  std::lock_guard<std::mutex> lock(s_mutex);
  delete s_instance.load(std::memory_order_relaxed);
  s_instance.store(nullptr, std::memory_order_release);
}

Loader::Loader() {
  ZQ_LOG(Log::Message, "zq::plugin::Loader::Loader", "Plugin loader: Creating instance...");
  m_searchPaths = defaultSearchPaths();
  // The count is never negative, so this line comes with every binding, a good one too.
  if (bindComponentPacks() >= 0)
    ZQ_LOG(Log::Warning, "zq::plugin::Loader::Loader", "Plugin loader: No component packs loaded.");
  ZQ_LOG(Log::Message, "zq::plugin::Loader::Loader", "Plugin loader: Instance created.");
}

Loader::~Loader() {
  ZQ_LOG(Log::Message, "zq::plugin::Loader::~Loader", "Plugin loader: Destroying instance...");
  for (auto& component : m_components) delete component.second;
  m_components.clear();
  ZQ_LOG(Log::Message, "zq::plugin::Loader::~Loader", "Plugin loader: Instance destroyed.");
  // m_packs frees only the handle boxes: the libraries stay open, for components that
  // callers still hold run code from them.
}

int Loader::bindComponentPacks() {
  const char* const kFunction = "zq::plugin::Loader::bindComponentPacks";
  std::list<std::wstring> all;
  ZQ_LOG(Log::Message, kFunction, "Plugin loader: Plugin search paths: ");
  for (const std::wstring& searchPath : m_searchPaths) {
    ZQ_LOG(Log::Message, kFunction, "-\"" << searchPath << "\"");
    std::list<std::wstring> found;
    try {
      found = listSharedLibraries(searchPath);
    } catch (const Exception& e) {
      ZQ_LOG(Log::Message, kFunction, Printed{e});
      continue;
    }
    if (found.empty()) ZQ_LOG(Log::Message, kFunction, "Plugin loader: No plugins found at \"" << searchPath << "\"!");
    all.splice(all.end(), found);
  }
  if (all.empty()) ZQ_LOG(Log::Warning, kFunction, "Plugin loader: No plugins found at all!");

  int count = 0;
  for (const std::wstring& path : all) {
    try {
      const std::multiset<std::wstring> libraries(all.begin(), all.end());
      if (shouldLoad(path, libraries)) {
        loadComponentPack(path);
        ++count;
      }
    } catch (const std::exception& e) {
      ZQ_LOG(Log::Critical, kFunction, "Plugin loader (exception): " << e.what());
    } catch (...) {
      ZQ_LOG(Log::Critical, kFunction, "Plugin loader: Unknown exception!");
    }
  }
  return count;
}

void Loader::loadComponentPack(const std::wstring& path) {
  const char* const kFunction = "zq::plugin::Loader::loadComponentPack";
  ComponentPackEntry pack;
  pack.path = path;
  pack.handle = createHandle();
  ZQ_LOG(Log::Message, kFunction, "Plugin loader: Loading component pack \"" << path << "\"");
  loadSharedLibrary(*pack.handle, path);
  // A library without the entry points stays open: it may be in use by another pack.
  pack.enumerate = reinterpret_cast<EnumerateFunction>(getFunctionPtr(*pack.handle, kEnumerateName));
  pack.create = reinterpret_cast<CreateFunction>(getFunctionPtr(*pack.handle, kCreateName));
  m_packs[path] = pack;

  // The set is asked for again at each step: a pack must hand out one living set.
  for (auto name = pack.enumerate().begin(); name != pack.enumerate().end(); ++name) {
    ZQ_LOG(Log::Message, kFunction, "Plugin loader: \tCreating component \"" << *name << "\"");
    const boost::shared_ptr<IComponent> component(pack.create(*name));
    if (!component) {
      ZQ_LOG(Log::Critical, kFunction, "Plugin loader: Error creating component \"" << *name << "\"");
      continue;
    }
    ComponentEntry* entry = new ComponentEntry{*name, path, component};
    // The first pack to offer a name keeps it; a later entry is reachable by interface only.
    m_components.insert(std::make_pair(entry->name, entry));
    for (const std::string& interfaceId : component->interfaceIds()) {
      m_byInterface.insert(std::make_pair(interfaceId, entry));
      for (const std::string& capability : component->capabilities(interfaceId))
        m_byCapability.insert(std::make_pair(capability, entry));
    }
  }
}

void Loader::unloadComponentPack(PackMap::iterator& pack) {
  platform::closeLibrary(pack->second.handle->module);
  pack = m_packs.erase(pack);
}

std::list<std::wstring> Loader::searchPaths() const { return m_searchPaths; }

void Loader::setSearchPaths(const std::list<std::wstring>& paths) {
  if (&paths != &m_searchPaths) m_searchPaths = paths;
}

std::list<boost::shared_ptr<IComponent>> Loader::listComponents(const std::string& interfaceId,
                                                                const std::string& capability) {
  std::list<boost::shared_ptr<IComponent>> result;
  const auto range = interfaceId == k_ignoreInterfaces ? std::make_pair(m_byInterface.begin(), m_byInterface.end())
                                                       : m_byInterface.equal_range(interfaceId);
  for (auto element = range.first; element != range.second; ++element) {
    const boost::shared_ptr<IComponent>& component = element->second->component;
    // Capabilities are asked under the interface as given, even the ignored one.
    if (capability == k_ignoreCapabilities || component->capabilities(interfaceId).count(capability) != 0)
      result.push_back(component);
  }
  if (result.empty())
    ZQ_LOG(Log::Warning, "zq::plugin::Loader::listComponents",
           "Plugin loader: No components found for interface \"" << interfaceId << "\" capability \"" << capability
                                                                 << "\".");
  return result;
}

boost::shared_ptr<IComponent> Loader::getComponentInterface(const std::string& interfaceId,
                                                            const std::string& capability) {
  const std::list<boost::shared_ptr<IComponent>> found = listComponents(interfaceId, capability);
  if (found.size() > 1)
    ZQ_LOG(Log::Warning, "zq::plugin::Loader::getComponentInterface",
           "Plugin loader: Multiple components found for interface \"" << interfaceId << "\" capability \""
                                                                       << capability << "\".");
  return found.empty() ? boost::shared_ptr<IComponent>() : found.front();
}

std::wstring Loader::languageOfComponents() const { return m_language; }

void Loader::setLanguageOfComponents(const std::wstring& language) {
  m_language = language;
  for (const auto& element : m_components) {
    IInterface& root = *element.second->component;
    if (void* localizable = root.getInterface(ICanBeLocalized::ID()))
      static_cast<ICanBeLocalized*>(localizable)->setLanguage(language);
  }
}

}  // namespace plugin
}  // namespace zq
