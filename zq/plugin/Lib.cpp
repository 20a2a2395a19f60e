#include <zq/plugin/Lib.h>

namespace zq {
namespace plugin {

Lib::Lib() : m_loaded(false), m_handle(nullptr) {}

Lib::Lib(const std::wstring& path, bool load) : m_path(path), m_loaded(false), m_handle(nullptr) {
  if (load) this->load();
}

Lib::Lib(const Lib& other) : m_path(other.m_path), m_loaded(false), m_handle(nullptr) {}

Lib& Lib::operator=(const Lib& other) {
  unload();
  if (this != &other) m_path = other.m_path;
  return *this;
}

Lib::~Lib() { unload(); }

bool Lib::load() {
  static const std::wstring kPrefix;
  static const std::wstring kEnding = L".so";
  if (m_loaded) return true;
  if (m_path.empty()) return false;
  const std::wstring fileName = kPrefix + m_path + kEnding;
  Loader::SharedLibraryHandle* handle = nullptr;
  try {
    handle = Loader::createHandle();
    Loader::loadSharedLibrary(*handle, fileName);
    m_handle = handle;
    m_loaded = true;
  } catch (...) {
    // The box is freed here rather than dropped: nothing else can reach it.
    Loader::destroyHandle(handle);
    m_handle = nullptr;
    m_loaded = false;
  }
  return m_loaded;
}

bool Lib::load(const std::wstring& path) {
  if (path != m_path)
    unload();
  else if (m_loaded)
    return true;
  m_path = path;
  return load();
}

void Lib::unload() {
  if (!m_loaded) return;
  m_functions.clear();
  Loader::unloadSharedLibrary(*m_handle);
  m_loaded = false;
  Loader::destroyHandle(m_handle);
  m_handle = nullptr;
}

void Lib::setPath(const std::wstring& path) {
  if (path == m_path) return;
  unload();
  m_path = path;
}

void* Lib::getFunction(const std::string& name, bool resolve) {
  const auto cached = m_functions.find(name);
  if (cached != m_functions.end()) return cached->second;
  if (!resolve) return nullptr;
  if (!m_loaded && !load()) return nullptr;
  if (!m_handle) return nullptr;  // an override of load() may answer true and open nothing
  try {
    void* address = Loader::getFunctionPtr(*m_handle, name);
    m_functions[name] = address;
    return address;
  } catch (...) {
    return nullptr;
  }
}

}  // namespace plugin
}  // namespace zq
