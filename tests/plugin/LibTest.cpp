#include "PluginTestSupport.h"

#include <zq/plugin/Lib.h>

#include <gtest/gtest.h>

namespace {

using zq::plugin::Lib;
using zqtest::pluginFolder;
using zqtest::wide;

// NoEntry.so exports one C function, noEntryAnswer, returning 42.
const std::wstring noEntry = wide(pluginFolder() / "NoEntry");
const std::wstring shapes = wide(pluginFolder() / "Shapes");
const std::wstring missing = wide(pluginFolder() / "NoSuchLibrary");

TEST(LibTest, LooksUpAndCachesFunctions) {
  EXPECT_EQ(Lib().getFunction("noEntryAnswer", true), nullptr);
  // The ending is always added, even to a path that has it already.
  EXPECT_FALSE(Lib(noEntry + L".so", true).isLoaded());

  Lib lib(noEntry, false);
  EXPECT_EQ(lib.getFunction("noEntryAnswer", false), nullptr);  // opens nothing
  EXPECT_FALSE(lib.isLoaded());
  void* answer = lib.getFunction("noEntryAnswer", true);
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(reinterpret_cast<int (*)()>(answer)(), 42);
  EXPECT_EQ(lib.getFunction("noEntryAnswer", false), answer);

  // A missing symbol keeps the library open and is not remembered.
  EXPECT_EQ(lib.getFunction("noSuchFunction", true), nullptr);
  EXPECT_TRUE(lib.isLoaded());
  EXPECT_EQ(lib.getFunctions().size(), 1u);
  lib.unload();
  EXPECT_TRUE(lib.getFunctions().empty());
  EXPECT_EQ(lib.getPath(), noEntry);
}

TEST(LibTest, LoadWithAPathClosesOnlyForAnotherPath) {
  Lib lib(noEntry, true);
  ASSERT_NE(lib.getFunction("noEntryAnswer", true), nullptr);
  EXPECT_TRUE(lib.load(noEntry));
  EXPECT_EQ(lib.getFunctions().size(), 1u);  // still open, cache kept

  EXPECT_TRUE(lib.load(shapes));
  EXPECT_TRUE(lib.getFunctions().empty());
  EXPECT_NE(lib.getFunction("enumeratePluginComponents", true), nullptr);
  EXPECT_EQ(lib.getFunction("noEntryAnswer", true), nullptr);

  // A path that fails leaves the object closed, with the new path.
  EXPECT_FALSE(lib.load(missing));
  EXPECT_EQ(lib.getPath(), missing);

  // setPath likewise closes for another path only, and opens nothing.
  ASSERT_TRUE(lib.load(noEntry));
  lib.setPath(noEntry);
  EXPECT_TRUE(lib.isLoaded());
  lib.setPath(shapes);
  EXPECT_FALSE(lib.isLoaded());
  EXPECT_EQ(lib.getPath(), shapes);
}

TEST(LibTest, CopiesTakeThePathOnlyAndSelfAssignmentCloses) {
  Lib source(noEntry, true);
  ASSERT_NE(source.getFunction("noEntryAnswer", true), nullptr);
  const Lib copy(source);
  Lib assigned(shapes, true);
  assigned = source;
  for (const Lib* other : {&copy, static_cast<const Lib*>(&assigned)}) {
    EXPECT_EQ(other->getPath(), noEntry);
    EXPECT_FALSE(other->isLoaded());
  }
  Lib& alias = source;
  source = alias;
  EXPECT_FALSE(source.isLoaded());
  EXPECT_TRUE(source.getFunctions().empty());
  EXPECT_EQ(source.getPath(), noEntry);
}

// Counts the calls of the virtual load(), and opens the library only if `opens`.
struct CountingLib : Lib {
  CountingLib(const std::wstring& path, bool opens) : Lib(path, false), opens(opens) {}
  using Lib::load;
  bool load() override {
    ++loads;
    return opens ? Lib::load() : true;
  }
  const bool opens;
  int loads = 0;
};

TEST(LibTest, OpeningGoesThroughTheVirtualLoad) {
  CountingLib lib(noEntry, true);
  EXPECT_NE(lib.getFunction("noEntryAnswer", true), nullptr);
  lib.unload();
  EXPECT_TRUE(lib.load(shapes));
  EXPECT_EQ(lib.loads, 2);
  // An override that claims success but opens nothing yields no functions, and no crash.
  CountingLib pretending(noEntry, false);
  EXPECT_EQ(pretending.getFunction("noEntryAnswer", true), nullptr);
  EXPECT_EQ(pretending.loads, 1);
}

}  // namespace
