#include "PluginTestSupport.h"

#include "tests/support/LogCapture.h"

#include <zq/foundation/Exception.h>
#include <zq/plugin/Loader.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

namespace {

namespace fs = std::filesystem;
using zq::plugin::Loader;
using zqtest::originOf;
using zqtest::pluginFolder;
using zqtest::wide;
typedef std::vector<std::string> Lines;

const std::string kLoader = "[zq::plugin::Loader::Loader] Plugin loader: ";
const std::string kBind = "[zq::plugin::Loader::bindComponentPacks] ";
const std::string kPack = "[zq::plugin::Loader::loadComponentPack] Plugin loader: ";
const std::string kNoneFound =
    "[zq::plugin::Loader::listComponents] Plugin loader: No components found for interface \"";

std::string loading(const fs::path& pack) { return kPack + "Loading component pack \"" + pack.string() + "\""; }
std::string creating(const std::string& name) { return kPack + "\tCreating component \"" + name + "\""; }

// The log of binding `folder`: the framing lines around `steps`, then `after`.
Lines bindingLog(const fs::path& folder, const Lines& steps, const Lines& after = {}) {
  Lines lines = {kLoader + "Creating instance...",
                 kBind + "Plugin loader: Plugin search paths: ", kBind + "-\"" + folder.string() + "\""};
  lines.insert(lines.end(), steps.begin(), steps.end());
  // "No component packs loaded." is written after every binding, a successful one too.
  lines.insert(lines.end(), {kLoader + "No component packs loaded.", kLoader + "Instance created."});
  lines.insert(lines.end(), after.begin(), after.end());
  return lines;
}

Lines origins(const std::list<boost::shared_ptr<zq::IComponent>>& components) {
  Lines result;
  for (const auto& component : components) result.push_back(originOf(component));
  return result;
}

// The text of the RuntimeError that `f` throws; "" when it throws none.
template <class F>
std::string errorOf(F f) {
  try {
    f();
  } catch (const zq::RuntimeError& e) {
    return e.whatStr();
  }
  return "";
}

TEST(LoaderLibrariesTest, ListsSharedLibrariesSortedByName) {
  zqtest::ScratchFolder scratch;
  for (const char* name : {"b.so", "a.so", "c.txt", "so", "a.so.1"}) std::ofstream(scratch.path / name) << "x";
  fs::create_directories(scratch.path / "dir.so" / "empty");
  EXPECT_EQ(Loader::listSharedLibraries(wide(scratch.path)),
            (std::list<std::wstring>{wide(scratch.path / "a.so"), wide(scratch.path / "b.so"),
                                     wide(scratch.path / "dir.so")}));
  EXPECT_TRUE(Loader::listSharedLibraries(wide(scratch.path / "dir.so" / "empty")).empty());
  EXPECT_EQ(errorOf([&] { Loader::listSharedLibraries(wide(scratch.path / "missing")); }), "No such file or directory");
  EXPECT_EQ(Loader::defaultSearchPaths(), std::list<std::wstring>{wide(pluginFolder())});
}

TEST(LoaderLibrariesTest, LoadAndLookUpWithExactFailureTexts) {
  Loader::SharedLibraryHandle* handle = Loader::createHandle();
  const std::string missing = (pluginFolder() / "NoSuchLibrary.so").string();
  EXPECT_EQ(errorOf([&] { Loader::loadSharedLibrary(*handle, zq::wconvert(missing)); }),
            "Error loading shared library \"" + missing + "\" : " + missing +
                ": cannot open shared object file: No such file or directory");
  EXPECT_NE(errorOf([&] { Loader::loadSharedLibrary(*handle, L""); }), "");
  // A handle that holds no library must fail a lookup, not search the whole process.
  EXPECT_NE(errorOf([&] { Loader::getFunctionPtr(*handle, "malloc"); }), "");

  Loader::loadSharedLibrary(*handle, wide(pluginFolder() / "NoEntry.so"));
  EXPECT_EQ(reinterpret_cast<int (*)()>(Loader::getFunctionPtr(*handle, "noEntryAnswer"))(), 42);
  const std::string error = errorOf([&] { Loader::getFunctionPtr(*handle, "enumeratePluginComponents"); });
  EXPECT_EQ(error.rfind("Error getting function \"enumeratePluginComponents\": ", 0), 0u) << error;
  EXPECT_NE(error.find("undefined symbol: enumeratePluginComponents"), std::string::npos) << error;
  Loader::unloadSharedLibrary(*handle);
  Loader::destroyHandle(handle);
}

// The system's loader maps a cut-off ELF file's segments past its end; touching them raised
// SIGBUS in the whole process. (A cut that only loses sections behind the segments still loads.)
TEST(LoaderLibrariesTest, CutOffLibraryIsRefusedInsteadOfMapped) {
  zqtest::ScratchFolder scratch;
  std::ifstream whole(zqtest::pluginPool() / "DupA.so", std::ios::binary);
  const std::string elf((std::istreambuf_iterator<char>(whole)), std::istreambuf_iterator<char>());
  Loader::SharedLibraryHandle* handle = Loader::createHandle();
  for (std::size_t size : {1000, 20000, 60000}) {  // all inside the loadable segments
    const fs::path cut = scratch.path / ("Cut" + std::to_string(size) + ".so");
    std::ofstream(cut, std::ios::binary) << elf.substr(0, size);
    EXPECT_EQ(errorOf([&] { Loader::loadSharedLibrary(*handle, wide(cut)); }),
              "Error loading shared library \"" + cut.string() + "\" : " + cut.string() + ": file too short");
  }
  Loader::destroyHandle(handle);
}

// Each test binds the packs beside the test program afresh, with the log captured.
class LoaderTest : public ::testing::Test {
 protected:
  ~LoaderTest() override { Loader::shutdown(); }
  zq::test::LogCapture log{zq::Log::Debug};
  Loader& loader = Loader::instance();
};

TEST_F(LoaderTest, BindingWritesItsStepsAndGoesOnAfterBadPacks) {
  auto pack = [](const char* file) { return pluginFolder() / file; };
  const std::string failed = kBind + "Plugin loader (exception): ";
  const Lines expected =
      bindingLog(pluginFolder(),
                 {"[zq::plugin::Loader::shouldLoad] Plugin loader: Trying to load debug version of \"" +
                      pack("Loned.so").string() + "\" because release version is not found.",
                  loading(pack("Loned.so")), creating("lone.Component"),  //
                  loading(pack("NoEntry.so")), failed + "Error getting function \"enumeratePluginComponents\": ...",
                  loading(pack("NotALibrary.so")),
                  failed + "Error loading shared library \"" + pack("NotALibrary.so").string() + "\" : ...",
                  loading(pack("Partial.so")), creating("partial.a"), creating("partial.b.null"),
                  kPack + "Error creating component \"partial.b.null\"", creating("partial.c.throws"),
                  failed + "component c refused",  //
                  loading(pack("Shapes.so")), creating("shapes.Circle"), creating("shapes.Square"),
                  // The debug twin Twind.so stays out without a word.
                  loading(pack("Twin.so")), creating("twin.Component")});
  EXPECT_EQ(zqtest::matched(log.bodies(), expected), expected);
  EXPECT_EQ(log.linesWith(" CRITICAL ").size(), 4u);
  EXPECT_EQ(origins(loader.listComponents("test::INamed", "")), (Lines{"Loned/lone.Component", "Twin/twin.Component"}));
}

TEST_F(LoaderTest, FindsComponentsByInterfaceAndCapabilityInBindingOrder) {
  log.clear();
  // A pack that threw keeps what it made before.
  const Lines shapes = {"Partial/partial.a", "Shapes/shapes.Circle", "Shapes/shapes.Square"};
  EXPECT_EQ(origins(loader.listComponents("test::IShape", "")), shapes);
  EXPECT_EQ(origins(loader.listComponents("test::IShape", "2d")), shapes);
  EXPECT_EQ(origins(loader.listComponents("test::IShape", "corners")), Lines{"Shapes/shapes.Square"});
  EXPECT_EQ(origins(loader.listComponents("test::IDrawable", "svg")), Lines{"Shapes/shapes.Circle"});
  EXPECT_EQ(originOf(loader.getComponentInterface("test::IShape", "round")), "Shapes/shapes.Circle");
  // Every interface: each component once per interface it offers, grouped by interface.
  const Lines all = origins(loader.listComponents("", ""));
  EXPECT_EQ(all.size(), 14u);
  EXPECT_EQ(all.front(), "Shapes/shapes.Circle");  // under "test::IDrawable", the first key
  EXPECT_EQ(all.back(), "Twin/twin.Component");    // bound last under "zqtest::TestComponent", the last key
  EXPECT_TRUE(log.lines().empty());

  // A capability with every interface is asked under the empty identifier: nothing answers.
  EXPECT_TRUE(loader.listComponents("", "2d").empty());
  EXPECT_TRUE(loader.listComponents("test::IShape", "svg").empty());
  EXPECT_EQ(originOf(loader.getComponentInterface("test::IShape", "2d")), "Partial/partial.a");
  EXPECT_EQ(originOf(loader.getComponentInterface("test::INothing", "")), "null");
  EXPECT_EQ(log.bodies(),
            (Lines{kNoneFound + "\" capability \"2d\".", kNoneFound + "test::IShape\" capability \"svg\".",
                   "[zq::plugin::Loader::getComponentInterface] Plugin loader: Multiple components "
                   "found for interface \"test::IShape\" capability \"2d\".",
                   kNoneFound + "test::INothing\" capability \"\"."}));
  EXPECT_EQ(log.linesWith(" WARNING ").size(), 4u);
}

TEST_F(LoaderTest, LanguageReachesLocalizableComponentsOnly) {
  loader.setLanguageOfComponents(L"de");
  EXPECT_EQ(loader.languageOfComponents(), L"de");
  for (const auto& component : loader.listComponents(zqtest::TestComponent::ID(), "")) {
    const zqtest::TestComponent* test = zqtest::testComponent(component);
    EXPECT_EQ(test->language, test->localizable ? L"de" : L"") << test->origin;
  }
}

TEST_F(LoaderTest, ShutdownEndsTheInstanceWhileHeldComponentsLiveOn) {
  loader.setSearchPaths({L"/nowhere"});  // kept, without rebinding
  EXPECT_EQ(loader.searchPaths(), std::list<std::wstring>{L"/nowhere"});
  const boost::shared_ptr<zq::IComponent> held = loader.getComponentInterface("test::IShape", "round");
  ASSERT_EQ(originOf(held), "Shapes/shapes.Circle");
  loader.setLanguageOfComponents(L"it");
  log.clear();
  Loader::shutdown();
  Loader::shutdown();  // does nothing
  EXPECT_EQ(log.bodies(), (Lines{"[zq::plugin::Loader::~Loader] Plugin loader: Destroying instance...",
                                 "[zq::plugin::Loader::~Loader] Plugin loader: Instance destroyed."}));
  // The library stays open, so the held component still works.
  EXPECT_EQ(originOf(held), "Shapes/shapes.Circle");

  Loader& again = Loader::instance();
  EXPECT_EQ(again.languageOfComponents(), L"");
  EXPECT_EQ(again.searchPaths(), Loader::defaultSearchPaths());
  const boost::shared_ptr<zq::IComponent> fresh = again.getComponentInterface("test::IShape", "round");
  EXPECT_EQ(originOf(fresh), "Shapes/shapes.Circle");
  EXPECT_NE(fresh.get(), held.get());
}

TEST_F(LoaderTest, ConcurrentFirstUseMakesOneInstance) {
  Loader::shutdown();
  std::vector<Loader*> seen(4, nullptr);
  std::vector<std::thread> threads;
  threads.reserve(seen.size());
  for (Loader*& slot : seen) threads.emplace_back([&slot] { slot = &Loader::instance(); });
  for (std::thread& t : threads) t.join();
  for (Loader* one : seen) EXPECT_EQ(one, seen.front());
  EXPECT_EQ(log.linesWith("Creating instance...").size(), 2u);  // the fixture's and this one
}

// Fresh processes: the probe program in a scratch folder, beside a PlugIns folder of its own.
class LoaderProcessTest : public ::testing::Test {
 protected:
  LoaderProcessTest() { fs::copy_file(zqtest::pluginPool() / "zq_plugin_probe", probe); }
  Lines run(bool unprivileged = false) {
    const std::vector<std::string> argv = {probe.string()};
    const zq::test::ChildResult result = zq::test::runChild(unprivileged ? zq::test::asUnprivileged(argv) : argv);
    EXPECT_EQ(result.exitCode, 0) << result.output << " signal " << result.signal << " timed out " << result.timedOut;
    Lines lines;
    std::istringstream in(result.output);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }

  zqtest::ScratchFolder scratch;
  const fs::path probe = scratch.path / "zq_plugin_probe";
  const fs::path plugIns = scratch.path / "PlugIns";
};

TEST_F(LoaderProcessTest, MissingOrEmptyFolderGivesAWorkingEmptyLoader) {
  const Lines none = {kNoneFound + "zqtest::TestComponent\" capability \"\".", "components:"};
  const std::string nothing = kBind + "Plugin loader: No plugins found at all!";
  EXPECT_EQ(run(), bindingLog(plugIns, {kBind + "No such file or directory", nothing}, none));
  fs::create_directory(plugIns);
  EXPECT_EQ(
      run(),
      bindingLog(plugIns, {kBind + "Plugin loader: No plugins found at \"" + plugIns.string() + "\"!", nothing}, none));
}

TEST_F(LoaderProcessTest, FirstPackKeepsASharedComponentName) {
  fs::create_directories(plugIns / "Folder.so");  // listed, but no library
  for (const char* pack : {"DupA.so", "DupB.so"}) fs::copy_file(zqtest::pluginPool() / pack, plugIns / pack);
  const Lines expected = bindingLog(plugIns,
                                    {loading(plugIns / "DupA.so"), creating("dup.Same"), loading(plugIns / "DupB.so"),
                                     creating("dup.Same"), loading(plugIns / "Folder.so"),
                                     kBind + "Plugin loader (exception): Error loading shared library \"" +
                                         (plugIns / "Folder.so").string() + "\" : ..."},
                                    // Both answer by interface, in binding order; only the first holds the name, so
                                    // only it is told the language.
                                    {"components: DupA/dup.Same=fr DupB/dup.Same="});
  EXPECT_EQ(zqtest::matched(run(), expected), expected);
}

// Files that break binding in every way the system can: unreadable, cut-off or garbled ELF, and
// a pack that disappears after it was listed. Each is logged and binding goes on.
TEST_F(LoaderProcessTest, BadFilesAndAVanishingPackAreLoggedAndBindingGoesOn) {
  const fs::perms open = fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec | fs::perms::others_read |
                         fs::perms::others_exec;
  fs::permissions(scratch.path, open);
  fs::create_directory(plugIns);
  fs::permissions(plugIns, fs::perms::all);  // the remover, unprivileged, deletes in it
  std::ifstream packFile(zqtest::pluginPool() / "DupA.so", std::ios::binary);
  const std::string elf((std::istreambuf_iterator<char>(packFile)), std::istreambuf_iterator<char>());
  std::ofstream(plugIns / "Broken.so", std::ios::binary) << elf.substr(0, 1000);
  std::ofstream(plugIns / "Garbage.so", std::ios::binary) << elf.substr(0, 4) << std::string(4000, '\x5a');
  fs::copy_file(zqtest::pluginPool() / "DupA.so", plugIns / "Private.so");
  fs::permissions(plugIns / "Private.so", fs::perms::none);
  fs::copy_file(zqtest::pluginPool() / "Remover.so", plugIns / "Eraser.so");
  fs::copy_file(zqtest::pluginPool() / "DupB.so", plugIns / "Gone.so");
  // The child inherits it; no other thread of this test reads the environment.
  ::setenv("ZQ_TEST_REMOVE_PACK", (plugIns / "Gone.so").c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
  const Lines lines = run(true);
  ::unsetenv("ZQ_TEST_REMOVE_PACK");  // NOLINT(concurrency-mt-unsafe)

  auto refused = [&](const char* pack) {
    return Lines{loading(plugIns / pack), kBind + "Plugin loader (exception): Error loading shared library \"" +
                                              (plugIns / pack).string() + "\" : ..."};
  };
  // In name order; no name ends in "d.so", which would make it a debug build.
  Lines steps = refused("Broken.so");
  steps.insert(steps.end(), {loading(plugIns / "Eraser.so"), creating("remover.Component")});
  for (const char* pack : {"Garbage.so", "Gone.so", "Private.so"}) {
    const Lines more = refused(pack);
    steps.insert(steps.end(), more.begin(), more.end());
  }
  const Lines expected = bindingLog(plugIns, steps, {"components: Remover/remover.Component=fr"});
  EXPECT_EQ(zqtest::matched(lines, expected), expected);
  EXPECT_FALSE(fs::exists(plugIns / "Gone.so"));
}

}  // namespace
