#include <zq/values/FileCache.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using zq::FileCache;
using zq::FileCacheEntry;

// Records which entries told it they were going away, and the key each still had then.
class RecordingCache : public FileCache {
 public:
  FileCacheEntry* find(const std::string&) override { return nullptr; }
  bool insert(FileCacheEntry* entry) override {
    entry->setOwner(this);
    return true;
  }
  void entryDestroyed(FileCacheEntry* entry) override {
    destroyed.push_back(entry);
    keys.push_back(entry->getKey());
  }
  bool remove(const std::string&) override { return false; }
  void clear() override {}
  std::size_t getCount() const override { return 0; }
  std::size_t getTotalCost() const override { return 0; }
  std::size_t getMaxCost() const override { return 0; }
  void setMaxCost(std::size_t) override {}
  const std::string& getDirectory() const override { return directory; }

  std::vector<FileCacheEntry*> destroyed;
  std::vector<std::string> keys;
  std::string directory;
};

class Entry : public FileCacheEntry {
 public:
  using FileCacheEntry::FileCacheEntry;
  bool isValid() const override { return true; }
  bool removeFile() override { return true; }
};

const FileCacheEntry::time_point kStamp = FileCacheEntry::time_point(std::chrono::seconds(1234));

TEST(FileCacheTest, FieldsAndDefaults) {
  const Entry blank;
  EXPECT_EQ(1u, blank.getCost());
  EXPECT_EQ(0, blank.getError());
  EXPECT_EQ(nullptr, blank.getOwner());
  EXPECT_EQ(FileCacheEntry::time_point(), blank.getTimeStamp());
  EXPECT_TRUE(blank.getKey().empty());
  EXPECT_TRUE(blank.getPath().empty());

  Entry e("key", kStamp, 5, "/tmp/file", 42);
  EXPECT_EQ("key", e.getKey());
  EXPECT_EQ("/tmp/file", e.getPath());
  EXPECT_EQ(5, e.getError());
  EXPECT_EQ(42u, e.getCost());
  EXPECT_EQ(kStamp, e.getTimeStamp());
  EXPECT_EQ(nullptr, e.getOwner());
}

TEST(FileCacheTest, AnOwnedEntryTellsItsCacheWhenItDies) {
  RecordingCache cache;
  auto* e = new Entry("k1", kStamp, 0, "/p", 1);
  cache.insert(e);
  EXPECT_EQ(&cache, e->getOwner());
  const FileCacheEntry* const address = e;  // compared as a value only, after the delete
  delete e;
  ASSERT_EQ(1u, cache.destroyed.size());
  EXPECT_TRUE(address == cache.destroyed[0]);
  EXPECT_EQ("k1", cache.keys[0]);  // the key is still readable in the call

  { Entry unowned("k2", kStamp, 0, "/p", 1); }
  Entry released("k3", kStamp, 0, "/p", 1);
  cache.insert(&released);
  released.setOwner(nullptr);
  EXPECT_EQ(1u, cache.destroyed.size());
}

TEST(FileCacheTest, TheOwnerLinkDoesNotTravel) {
  RecordingCache cache;
  Entry owned("k", kStamp, 3, "/p", 9);
  cache.insert(&owned);
  {
    const Entry copy(owned);
    EXPECT_EQ(nullptr, copy.getOwner());
    EXPECT_EQ("k", copy.getKey());
    EXPECT_EQ(9u, copy.getCost());
    EXPECT_EQ(3, copy.getError());
    EXPECT_EQ(kStamp, copy.getTimeStamp());
  }
  EXPECT_TRUE(cache.destroyed.empty()) << "a copy must not notify the cache";

  // Assignment takes every field but the owner, in both directions.
  RecordingCache other;
  Entry target("old", FileCacheEntry::time_point(), 0, "/old", 1);
  other.insert(&target);
  target = owned;
  EXPECT_EQ(&other, target.getOwner());
  EXPECT_EQ("k", target.getKey());
  EXPECT_EQ("/p", target.getPath());
  EXPECT_EQ(9u, target.getCost());
  EXPECT_EQ(3, target.getError());
  EXPECT_EQ(kStamp, target.getTimeStamp());

  Entry loose;
  loose = owned;
  EXPECT_EQ(nullptr, loose.getOwner());
  owned.setOwner(nullptr);
  target.setOwner(nullptr);
}

}  // namespace
