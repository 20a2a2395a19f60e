#include <zq/values/FileCache.h>

namespace zq {

FileCache::FileCache() = default;
FileCache::~FileCache() = default;

FileCacheEntry::FileCacheEntry() : m_owner(nullptr), m_cost(1), m_error(0), m_timeStamp() {}

FileCacheEntry::FileCacheEntry(const std::string& key, const time_point& timeStamp, int error, const std::string& path,
                               std::size_t cost)
    : m_key(key), m_path(path), m_owner(nullptr), m_cost(cost), m_error(error), m_timeStamp(timeStamp) {}

FileCacheEntry::FileCacheEntry(const FileCacheEntry& other)
    : m_key(other.m_key),
      m_path(other.m_path),
      m_owner(nullptr),
      m_cost(other.m_cost),
      m_error(other.m_error),
      m_timeStamp(other.m_timeStamp) {}

FileCacheEntry::~FileCacheEntry() {
  // Before the strings go, so the cache can still read the key.
  if (m_owner != nullptr) m_owner->entryDestroyed(this);
}

FileCacheEntry& FileCacheEntry::operator=(const FileCacheEntry& other) {
  if (this == &other) return *this;
  m_key = other.m_key;
  m_path = other.m_path;
  m_cost = other.m_cost;
  m_error = other.m_error;
  m_timeStamp = other.m_timeStamp;
  return *this;
}

}  // namespace zq
