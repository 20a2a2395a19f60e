#include "PluginTestSupport.h"

#include <zq/plugin/Lib.h>

#include <gtest/gtest.h>

namespace {

using zq::plugin::Lib;
using zqtest::pluginFolder;
using zqtest::wide;

typedef int (*AnswerFunction)();

// NoEntry.so exports one C function, noEntryAnswer, returning 42.
std::wstring noEntryPath() { return wide(pluginFolder() / "NoEntry"); }
std::wstring shapesPath() { return wide(pluginFolder() / "Shapes"); }

TEST(LibTest, EmptyOrWrongPathsDoNotOpen) {
  Lib none;
  EXPECT_FALSE(none.load());
  EXPECT_EQ(none.getFunction("noEntryAnswer", true), nullptr);
  EXPECT_FALSE(none.isLoaded());

  // The ending is always added, even to a path that has it already.
  Lib doubled(noEntryPath() + L".so", true);
  EXPECT_FALSE(doubled.isLoaded());
  EXPECT_EQ(doubled.getPath(), noEntryPath() + L".so");

  Lib missing(wide(pluginFolder() / "NoSuchLibrary"), false);
  EXPECT_FALSE(missing.load());
  EXPECT_FALSE(missing.isLoaded());
}

TEST(LibTest, LooksUpAndCachesFunctions) {
  Lib lib(noEntryPath(), false);
  EXPECT_FALSE(lib.isLoaded());
  // Without resolving, nothing is opened.
  EXPECT_EQ(lib.getFunction("noEntryAnswer", false), nullptr);
  EXPECT_FALSE(lib.isLoaded());

  void* answer = lib.getFunction("noEntryAnswer", true);
  ASSERT_NE(answer, nullptr);
  EXPECT_TRUE(lib.isLoaded());
  EXPECT_EQ(reinterpret_cast<AnswerFunction>(answer)(), 42);
  EXPECT_EQ(lib.getFunction("noEntryAnswer", false), answer);

  // A missing symbol keeps the library open and is not remembered.
  EXPECT_EQ(lib.getFunction("noSuchFunction", true), nullptr);
  EXPECT_TRUE(lib.isLoaded());
  EXPECT_EQ(lib.getFunctions().size(), 1u);
  EXPECT_EQ(lib.getFunctions().count("noSuchFunction"), 0u);

  lib.unload();
  EXPECT_FALSE(lib.isLoaded());
  EXPECT_TRUE(lib.getFunctions().empty());
  EXPECT_EQ(lib.getPath(), noEntryPath());
}

TEST(LibTest, LoadWithAPathClosesOnlyForAnotherPath) {
  Lib lib(noEntryPath(), true);
  ASSERT_TRUE(lib.isLoaded());
  ASSERT_NE(lib.getFunction("noEntryAnswer", true), nullptr);

  // The same path: still open, the cache kept.
  EXPECT_TRUE(lib.load(noEntryPath()));
  EXPECT_EQ(lib.getFunctions().size(), 1u);

  // Another path: closed first, so the cache is gone.
  EXPECT_TRUE(lib.load(shapesPath()));
  EXPECT_TRUE(lib.getFunctions().empty());
  EXPECT_EQ(lib.getPath(), shapesPath());
  EXPECT_NE(lib.getFunction("enumeratePluginComponents", true), nullptr);
  EXPECT_EQ(lib.getFunction("noEntryAnswer", true), nullptr);

  // A path that fails leaves the object closed, with the new path.
  const std::wstring bad = wide(pluginFolder() / "NoSuchLibrary");
  EXPECT_FALSE(lib.load(bad));
  EXPECT_FALSE(lib.isLoaded());
  EXPECT_EQ(lib.getPath(), bad);

  // setPath with the same path keeps the library open; another path closes it.
  ASSERT_TRUE(lib.load(noEntryPath()));
  lib.setPath(noEntryPath());
  EXPECT_TRUE(lib.isLoaded());
  lib.setPath(shapesPath());
  EXPECT_FALSE(lib.isLoaded());
  EXPECT_EQ(lib.getPath(), shapesPath());
}

TEST(LibTest, CopiesTakeThePathOnly) {
  Lib source(noEntryPath(), true);
  ASSERT_NE(source.getFunction("noEntryAnswer", true), nullptr);

  Lib copy(source);
  EXPECT_EQ(copy.getPath(), noEntryPath());
  EXPECT_FALSE(copy.isLoaded());
  EXPECT_TRUE(copy.getFunctions().empty());
  EXPECT_TRUE(source.isLoaded());

  Lib assigned(shapesPath(), true);
  assigned = source;
  EXPECT_EQ(assigned.getPath(), noEntryPath());
  EXPECT_FALSE(assigned.isLoaded());

  // Self-assignment closes the library and keeps the path.
  Lib& alias = source;
  source = alias;
  EXPECT_FALSE(source.isLoaded());
  EXPECT_TRUE(source.getFunctions().empty());
  EXPECT_EQ(source.getPath(), noEntryPath());
}

// Every way of opening goes through the virtual load().
class CountingLib : public Lib {
 public:
  using Lib::Lib;
  using Lib::load;
  bool load() override {
    ++loads;
    return Lib::load();
  }
  int loads = 0;
};

// Claims success without opening anything.
class PretendingLib : public Lib {
 public:
  using Lib::Lib;
  bool load() override { return true; }
};

TEST(LibTest, OpeningGoesThroughTheVirtualLoad) {
  CountingLib lib(noEntryPath(), false);
  EXPECT_NE(lib.getFunction("noEntryAnswer", true), nullptr);
  EXPECT_EQ(lib.loads, 1);
  lib.unload();
  EXPECT_TRUE(lib.load(shapesPath()));
  EXPECT_EQ(lib.loads, 2);

  // An override that opens nothing yields no functions, and no crash.
  PretendingLib pretending(noEntryPath(), false);
  EXPECT_EQ(pretending.getFunction("noEntryAnswer", true), nullptr);
  EXPECT_TRUE(pretending.getFunctions().empty());
}

}  // namespace
