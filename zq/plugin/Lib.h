// plugin::Lib: one shared library, opened on demand, with a cache of the functions looked
// up in it.
#pragma once

#include <zq/Export.h>
#include <zq/plugin/Loader.h>

#include <map>
#include <string>

namespace zq {
namespace plugin {

// Wraps one library given by its path without the ".so" ending, which Lib adds. Reports by
// result only: nothing throws out of it. One Lib is used from one thread at a time.
// Addresses from getFunction are valid while the Lib stays open.
class ZQ_API Lib {
 public:
  Lib();
  // Stores the path, and opens the library at once if `load`; a failure shows in isLoaded().
  Lib(const std::wstring& path, bool load);
  // Copies the path only: the copy is closed, with an empty cache.
  Lib(const Lib& other);
  // Closes this library (on self-assignment too), then takes the other's path. Not loaded.
  Lib& operator=(const Lib& other);
  virtual ~Lib();

  // Opens the library unless it is open; false when the path is empty or opening fails.
  // Every way of opening goes through here.
  virtual bool load();
  // Closes the library first when `path` differs from the current one; true at once when
  // it is the same and already open.
  bool load(const std::wstring& path);
  void unload();
  bool isLoaded() const { return m_loaded; }

  // Closes the library when `path` differs from the current one. Opens nothing.
  void setPath(const std::wstring& path);
  const std::wstring& getPath() const { return m_path; }

  // The cached address of `name`; otherwise, if `resolve`, opens the library as needed and
  // looks the name up. Null when not found; a name not found is not remembered.
  void* getFunction(const std::string& name, bool resolve);
  const std::map<std::string, void*>& getFunctions() const { return m_functions; }

 private:
  std::wstring m_path;
  bool m_loaded;
  Loader::SharedLibraryHandle* m_handle;
  std::map<std::string, void*> m_functions;
};

}  // namespace plugin
}  // namespace zq
