#include <zq/values/FileCache.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using zq::FileCacheEntry;

// Records the keys of the entries that told it they were going away.
struct RecordingCache : zq::FileCache {
  FileCacheEntry* find(const std::string&) override { return nullptr; }
  bool insert(FileCacheEntry*) override { return false; }
  void entryDestroyed(FileCacheEntry* entry) override { keys.push_back(entry->getKey()); }
  bool remove(const std::string&) override { return false; }
  void clear() override {}
  std::size_t getCount() const override { return 0; }
  std::size_t getTotalCost() const override { return 0; }
  std::size_t getMaxCost() const override { return 0; }
  void setMaxCost(std::size_t) override {}
  const std::string& getDirectory() const override { return directory; }

  std::vector<std::string> keys;
  std::string directory;
};

struct Entry : FileCacheEntry {
  using FileCacheEntry::FileCacheEntry;
  bool isValid() const override { return true; }
  bool removeFile() override { return true; }
};

const FileCacheEntry::time_point kStamp(std::chrono::seconds(1234));

std::string fields(const FileCacheEntry& e) {
  return e.getKey() + "|" + e.getPath() + "|" + std::to_string(e.getCost()) + "|" + std::to_string(e.getError()) + "|" +
         std::to_string(e.getTimeStamp().time_since_epoch().count());
}

// Only the entry that holds the owner link tells the cache, with the key it has then.
TEST(FileCacheTest, OnlyAnOwnedEntryTellsItsCacheWhenItDies) {
  RecordingCache cache, other;
  auto* owned = new Entry("k", kStamp, 3, "/p", 9);
  owned->setOwner(&cache);
  {
    const Entry copy(*owned);
    EXPECT_EQ(nullptr, copy.getOwner());
    EXPECT_EQ(fields(*owned), fields(copy));
    // Assignment takes every field but the owner, in both directions.
    Entry target("old", FileCacheEntry::time_point(), 0, "/old", 1), loose;
    target.setOwner(&other);
    EXPECT_EQ("||1|0|0", fields(loose));  // the defaults
    target = *owned;
    loose = *owned;
    EXPECT_EQ(nullptr, loose.getOwner());
    EXPECT_EQ(fields(*owned), fields(target));
  }
  EXPECT_TRUE(cache.keys.empty());
  EXPECT_EQ(std::vector<std::string>{"k"}, other.keys);
  delete owned;
  EXPECT_EQ(std::vector<std::string>{"k"}, cache.keys);
}

}  // namespace
