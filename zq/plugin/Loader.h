// plugin::Loader: finds the component packs in the "PlugIns" folder beside the running
// program, binds them once, and hands out their components by interface and capability.
// Its static members are the library's access to shared libraries, usable without the
// singleton.
//
// A component pack is a shared library that exports two functions under exactly these names
// (see ComponentPack.h for declaring them):
//   std::set<std::string>& enumeratePluginComponents()   the names of its components; the
//                                                         same living set on every call
//   zq::IComponent* createPluginComponent(const std::string& name)
//                                                         a new component the caller owns,
//                                                         or null
// A pack shares standard containers with this library, so it is built with the same
// compiler and runtime, against these headers.
#pragma once

#include <zq/Export.h>
#include <zq/plugin/IInterface.h>

#include <boost/shared_ptr.hpp>

#include <atomic>
#include <list>
#include <map>
#include <mutex>
#include <set>
#include <string>

namespace zq {
namespace plugin {

// The singleton binds every pack at the first instance(), under a lock; after that its
// tables do not change until shutdown(). Queries take no lock: they are safe against each
// other, but not against setSearchPaths, setLanguageOfComponents or shutdown(). A pack's
// create function and its components' constructors must not call instance(): the lock is
// held while they run. Libraries of packs stay open until the process ends, so components
// a caller still holds outlive shutdown().
class ZQ_API Loader {
 public:
  // The operating system's module handle in a box of its own. Opaque to callers.
  struct SharedLibraryHandle;

  typedef std::set<std::string>& (*EnumerateFunction)();
  typedef IComponent* (*CreateFunction)(const std::string& name);

  // Interface or capability argument that matches everything: the empty string.
  static const std::string k_ignoreInterfaces;
  static const std::string k_ignoreCapabilities;
  static const std::wstring k_pluginDir;              // "PlugIns"
  static const std::wstring k_debugSuffix;            // "d"
  static const std::wstring k_sharedSuffix;           // ".so"
  static const std::wstring k_complete_debug_suffix;  // "d.so"

  // ---- shared libraries, without the singleton ----
  // A new, empty box; destroyHandle frees it without closing anything.
  static SharedLibraryHandle* createHandle();
  static void destroyHandle(SharedLibraryHandle* handle);
  // Opens exactly `path`, ending included. Throws RuntimeError naming the path and the reason.
  static void loadSharedLibrary(SharedLibraryHandle& handle, const std::wstring& path);
  static void unloadSharedLibrary(SharedLibraryHandle& handle);
  // The exported symbol's address. Throws RuntimeError naming the symbol and the reason.
  static void* getFunctionPtr(SharedLibraryHandle& handle, const std::string& name);
  // "directory/name" of each entry of `directory` whose name ends in ".so", sorted by name;
  // empty when none matches. Throws RuntimeError with the system's reason when the folder
  // can't be read, e.g. when it does not exist.
  static std::list<std::wstring> listSharedLibraries(const std::wstring& directory);
  // One folder: "PlugIns" beside the running program's executable. Throws RuntimeError when
  // the executable's path can't be had.
  static std::list<std::wstring> defaultSearchPaths();

  // ---- the singleton ----
  // The loader, made and bound at the first call. Throws when the search path can't be
  // found; the next call then tries again.
  static Loader& instance();
  // Destroys the singleton; the next instance() binds everything again.
  static void shutdown();

  std::list<std::wstring> searchPaths() const;
  // Only changes what searchPaths() returns: binding is over by the time this can be called.
  void setSearchPaths(const std::list<std::wstring>& paths);

  // The components offering `interfaceId` (k_ignoreInterfaces: any) with `capability` among
  // its capabilities under that interface (k_ignoreCapabilities: any), ordered by interface,
  // then binding order. With every interface ignored, a component stands there once per
  // interface it offers. Logs a Warning when nothing matches.
  std::list<boost::shared_ptr<IComponent>> listComponents(const std::string& interfaceId,
                                                          const std::string& capability);
  // The first of listComponents, or empty. Logs a Warning when more than one matches.
  boost::shared_ptr<IComponent> getComponentInterface(const std::string& interfaceId, const std::string& capability);

  std::wstring languageOfComponents() const;
  // Stores the language and tells each component that offers ICanBeLocalized, in name order.
  void setLanguageOfComponents(const std::wstring& language);

 protected:
  Loader();
  virtual ~Loader();

 private:
  // A bound pack: owns its handle box, never closes the library.
  struct ComponentPackEntry {
    ComponentPackEntry();
    ComponentPackEntry(const ComponentPackEntry& other);
    // Each entry keeps a box of its own holding the same module handle.
    ComponentPackEntry& operator=(const ComponentPackEntry& other);
    ~ComponentPackEntry();

    std::wstring path;
    SharedLibraryHandle* handle;
    EnumerateFunction enumerate;
    CreateFunction create;
  };

  struct ComponentEntry {
    std::string name;
    std::wstring packPath;
    boost::shared_ptr<IComponent> component;
  };

  typedef std::map<std::wstring, ComponentPackEntry> PackMap;

  Loader(const Loader&);
  Loader& operator=(const Loader&);

  static std::wstring getErrorMessage(unsigned long code);
  // Whether the file name ends in "d.so". Throws std::out_of_range for a shorter path.
  static bool isDebugLib(const std::wstring& path);
  static bool isReleaseLib(const std::wstring& path);
  // False for a debug build whose release twin is among `libraries`.
  static bool shouldLoad(const std::wstring& path, const std::multiset<std::wstring>& libraries);

  // Returns the count of packs bound without an exception.
  int bindComponentPacks();
  // Throws when the library can't be opened or lacks an entry point, or when a component
  // throws; what was entered until then stays.
  void loadComponentPack(const std::wstring& path);
  void unloadComponentPack(PackMap::iterator& pack);

  std::list<std::wstring> m_searchPaths;
  PackMap m_packs;
  std::map<std::string, ComponentEntry*> m_components;  // owns its entries
  std::multimap<std::string, ComponentEntry*> m_byInterface;
  std::multimap<std::string, ComponentEntry*> m_byCapability;
  std::wstring m_language;

  // Atomic so that the lock-free fast path of instance() is a proper read.
  static std::atomic<Loader*> s_instance;
  static std::mutex s_mutex;
};

}  // namespace plugin
}  // namespace zq
