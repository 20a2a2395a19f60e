// FileCache and FileCacheEntry: the abstract interface of a cache of files on disk and the
// record it holds for each file. The concrete cache and records belong to the programs above
// the library; this library fixes only the record's fields and its link back to its cache.
#pragma once

#include <zq/Export.h>

#include <chrono>
#include <cstddef>
#include <string>

namespace zq {

class FileCacheEntry;

// A cache of files on disk. The implementation guards its entries; this interface takes no lock.
class ZQ_API FileCache {
 public:
  FileCache();
  virtual ~FileCache();

  // The entry under `key`, or null.
  virtual FileCacheEntry* find(const std::string& key) = 0;
  // Takes `entry` into the cache; false if the cache refuses it.
  virtual bool insert(FileCacheEntry* entry) = 0;
  // Called by an owned entry's destructor with the entry that is going away, so the cache can
  // drop it. The entry's derived parts are already gone: use it only as a key.
  virtual void entryDestroyed(FileCacheEntry* entry) = 0;
  // Drops the entry under `key`; false if there was none.
  virtual bool remove(const std::string& key) = 0;
  virtual void clear() = 0;
  virtual std::size_t getCount() const = 0;
  // Sum of the entries' costs.
  virtual std::size_t getTotalCost() const = 0;
  virtual std::size_t getMaxCost() const = 0;
  virtual void setMaxCost(std::size_t maxCost) = 0;
  // The folder that holds the cached files.
  virtual const std::string& getDirectory() const = 0;
};

// The record of one cached file: key, file path, cost, error code and time stamp, and a link to
// the cache that holds it. The link does not travel: a copy starts without an owner, and an
// assignment keeps the target's. The owner must outlive an entry that names it; an entry that
// dies while owned tells its cache. Not thread-safe: its cache guards it.
class ZQ_API FileCacheEntry {
 public:
  using time_point = std::chrono::steady_clock::time_point;

  FileCacheEntry();
  FileCacheEntry(const std::string& key, const time_point& timeStamp, int error, const std::string& path,
                 std::size_t cost);
  FileCacheEntry(const FileCacheEntry& other);  // the copy has no owner
  // Notifies the owner, if any, through FileCache::entryDestroyed.
  virtual ~FileCacheEntry();
  FileCacheEntry& operator=(const FileCacheEntry& other);  // keeps this entry's owner

  // Whether the file still matches the record.
  virtual bool isValid() const = 0;
  // Deletes the file on disk; false if that failed.
  virtual bool removeFile() = 0;

  const std::string& getKey() const { return m_key; }
  const std::string& getPath() const { return m_path; }
  const FileCache* getOwner() const { return m_owner; }
  std::size_t getCost() const { return m_cost; }
  int getError() const { return m_error; }
  const time_point& getTimeStamp() const { return m_timeStamp; }

  void setKey(const std::string& key) { m_key = key; }
  void setPath(const std::string& path) { m_path = path; }
  void setOwner(FileCache* owner) { m_owner = owner; }
  void setCost(std::size_t cost) { m_cost = cost; }
  void setError(int error) { m_error = error; }
  void setTimeStamp(const time_point& timeStamp) { m_timeStamp = timeStamp; }

 private:
  std::string m_key;
  std::string m_path;
  FileCache* m_owner;  // not owned
  std::size_t m_cost;
  int m_error;
  time_point m_timeStamp;
};

}  // namespace zq
