#include "PluginTestSupport.h"

#include "tests/support/LogCapture.h"

#include <zq/foundation/Exception.h>
#include <zq/plugin/Loader.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace {

using zq::plugin::Loader;
using zq::test::LogCapture;
using zqtest::originOf;
using zqtest::pluginFolder;
using zqtest::wide;

std::string narrow(const std::filesystem::path& path) { return path.string(); }

std::vector<std::string> origins(const std::list<boost::shared_ptr<zq::IComponent>>& components) {
  std::vector<std::string> result;
  for (const auto& component : components) result.push_back(originOf(component));
  return result;
}

// ---- the static side ----------------------------------------------------------------------

TEST(LoaderLibrariesTest, ListsSharedLibrariesSortedByName) {
  zqtest::ScratchFolder scratch;
  const std::filesystem::path folder = scratch.path();
  for (const char* name : {"b.so", "a.so", "c.txt", "so", "a.so.1"}) std::ofstream(folder / name) << "x";
  std::filesystem::create_directory(folder / "dir.so");

  const std::list<std::wstring> expected = {wide(folder / "a.so"), wide(folder / "b.so"), wide(folder / "dir.so")};
  EXPECT_EQ(Loader::listSharedLibraries(wide(folder)), expected);

  std::filesystem::create_directory(folder / "empty");
  EXPECT_TRUE(Loader::listSharedLibraries(wide(folder / "empty")).empty());

  try {
    Loader::listSharedLibraries(wide(folder / "missing"));
    ADD_FAILURE() << "a missing folder must throw";
  } catch (const zq::RuntimeError& e) {
    EXPECT_EQ(e.whatStr(), "No such file or directory");
  }
}

TEST(LoaderLibrariesTest, DefaultSearchPathIsBesideTheExecutable) {
  EXPECT_EQ(Loader::defaultSearchPaths(), std::list<std::wstring>{wide(pluginFolder())});
}

TEST(LoaderLibrariesTest, LoadAndLookUpWithExactFailureTexts) {
  Loader::SharedLibraryHandle* handle = Loader::createHandle();
  const std::string missing = narrow(pluginFolder() / "NoSuchLibrary.so");
  try {
    Loader::loadSharedLibrary(*handle, wide(pluginFolder() / "NoSuchLibrary.so"));
    ADD_FAILURE() << "opening a missing library must throw";
  } catch (const zq::RuntimeError& e) {
    EXPECT_EQ(e.whatStr(), "Error loading shared library \"" + missing + "\" : " + missing +
                               ": cannot open shared object file: No such file or directory");
  }
  EXPECT_THROW(Loader::loadSharedLibrary(*handle, L""), zq::RuntimeError);
  // A handle whose open failed holds no library: a lookup must fail, not search the
  // process (a null module means "everything loaded" to the system's lookup).
  EXPECT_THROW(Loader::getFunctionPtr(*handle, "malloc"), zq::RuntimeError);
  Loader::unloadSharedLibrary(*handle);

  // Nor may a handle that was never opened reach the system with whatever it holds.
  Loader::SharedLibraryHandle* fresh = Loader::createHandle();
  EXPECT_THROW(Loader::getFunctionPtr(*fresh, "malloc"), zq::RuntimeError);
  Loader::unloadSharedLibrary(*fresh);
  Loader::destroyHandle(fresh);

  Loader::loadSharedLibrary(*handle, wide(pluginFolder() / "NoEntry.so"));
  auto answer = reinterpret_cast<int (*)()>(Loader::getFunctionPtr(*handle, "noEntryAnswer"));
  EXPECT_EQ(answer(), 42);
  try {
    Loader::getFunctionPtr(*handle, "enumeratePluginComponents");
    ADD_FAILURE() << "a missing symbol must throw";
  } catch (const zq::RuntimeError& e) {
    const std::string prefix = "Error getting function \"enumeratePluginComponents\": ";
    EXPECT_EQ(e.whatStr().compare(0, prefix.size(), prefix), 0) << e.whatStr();
    EXPECT_NE(e.whatStr().find("undefined symbol: enumeratePluginComponents"), std::string::npos) << e.whatStr();
  }
  Loader::unloadSharedLibrary(*handle);
  Loader::destroyHandle(handle);
}

// ---- the singleton over the packs beside the test program ----------------------------------

class LoaderTest : public ::testing::Test {
 protected:
  // Each test binds afresh, with the log captured from the start.
  void SetUp() override {
    Loader::shutdown();
    m_log.reset(new LogCapture(zq::Log::Debug));
    m_loader = &Loader::instance();
  }
  void TearDown() override {
    m_log.reset();
    Loader::shutdown();
  }

  std::string packPath(const char* file) const { return narrow(pluginFolder() / file); }

  std::unique_ptr<LogCapture> m_log;
  Loader* m_loader = nullptr;
};

TEST_F(LoaderTest, BindingWritesItsStepsAndGoesOnAfterBadPacks) {
  const std::string c = "[zq::plugin::Loader::Loader] Plugin loader: ";
  const std::string b = "[zq::plugin::Loader::bindComponentPacks] Plugin loader";
  const std::string l = "[zq::plugin::Loader::loadComponentPack] Plugin loader: ";
  const std::string loading = l + "Loading component pack \"";
  const std::string creating = l + "\tCreating component \"";
  const std::vector<std::string> expected = {
      c + "Creating instance...",
      b + ": Plugin search paths: ",
      "[zq::plugin::Loader::bindComponentPacks] -\"" + narrow(pluginFolder()) + "\"",
      "[zq::plugin::Loader::shouldLoad] Plugin loader: Trying to load debug version of \"" + packPath("Loned.so") +
          "\" because release version is not found.",
      loading + packPath("Loned.so") + "\"",
      creating + "lone.Component\"",
      loading + packPath("NoEntry.so") + "\"",
      b + " (exception): Error getting function \"enumeratePluginComponents\": ...",
      loading + packPath("NotALibrary.so") + "\"",
      b + " (exception): Error loading shared library \"" + packPath("NotALibrary.so") + "\" : ...",
      loading + packPath("Partial.so") + "\"",
      creating + "partial.Broken\"",
      l + "Error creating component \"partial.Broken\"",
      creating + "partial.Working\"",
      loading + packPath("Shapes.so") + "\"",
      creating + "shapes.Circle\"",
      creating + "shapes.Square\"",
      loading + packPath("Throwing.so") + "\"",
      creating + "throwing.A\"",
      creating + "throwing.B\"",
      b + " (exception): component B refused",
      loading + packPath("Twin.so") + "\"",
      creating + "twin.Component\"",
      // Written after every binding, a successful one too.
      c + "No component packs loaded.",
      c + "Instance created.",
  };
  EXPECT_TRUE(zqtest::bodiesMatch(m_log->bodies(), expected));
  EXPECT_EQ(m_log->linesWith(" CRITICAL ").size(), 4u);

  // A pack that threw keeps what it made before.
  EXPECT_EQ(origins(m_loader->listComponents("test::IThrowing", "")), std::vector<std::string>{"Throwing/throwing.A"});
  // The debug twin stayed out; the lone debug build is in.
  EXPECT_EQ(origins(m_loader->listComponents("test::INamed", "")),
            (std::vector<std::string>{"Loned/lone.Component", "Twin/twin.Component"}));
}

TEST_F(LoaderTest, ListsByInterfaceAndCapability) {
  m_log->clear();
  EXPECT_EQ(origins(m_loader->listComponents("test::IShape", "")),
            (std::vector<std::string>{"Partial/partial.Working", "Shapes/shapes.Circle", "Shapes/shapes.Square"}));
  EXPECT_EQ(origins(m_loader->listComponents("test::IShape", "2d")),
            (std::vector<std::string>{"Partial/partial.Working", "Shapes/shapes.Circle", "Shapes/shapes.Square"}));
  EXPECT_EQ(origins(m_loader->listComponents("test::IShape", "corners")),
            std::vector<std::string>{"Shapes/shapes.Square"});
  EXPECT_EQ(origins(m_loader->listComponents("test::IDrawable", "svg")),
            std::vector<std::string>{"Shapes/shapes.Circle"});
  EXPECT_TRUE(m_log->lines().empty());

  // Every interface: once per interface of each component, grouped by interface.
  const std::vector<std::string> all = origins(m_loader->listComponents("", ""));
  EXPECT_EQ(all.size(), 16u);
  EXPECT_EQ(std::count(all.begin(), all.end(), "Shapes/shapes.Circle"), 4);
  EXPECT_EQ(all.front(), "Shapes/shapes.Circle");  // "test::IDrawable" is the first key
  EXPECT_EQ(all.back(), "Twin/twin.Component");    // the last bound under "zqtest::IProbe", the last key
  EXPECT_TRUE(m_log->lines().empty());

  // A capability with every interface is asked under the empty identifier: nothing answers.
  EXPECT_TRUE(m_loader->listComponents("", "2d").empty());
  EXPECT_TRUE(m_loader->listComponents("test::IShape", "svg").empty());
  EXPECT_TRUE(zqtest::bodiesMatch(
      m_log->bodies(),
      {"[zq::plugin::Loader::listComponents] Plugin loader: No components found for interface \"\" capability \"2d\".",
       "[zq::plugin::Loader::listComponents] Plugin loader: No components found for interface \"test::IShape\" "
       "capability \"svg\"."}));
  EXPECT_EQ(m_log->linesWith(" WARNING ").size(), 2u);
}

TEST_F(LoaderTest, GetComponentInterfaceTakesTheFirstInBindingOrder) {
  m_log->clear();
  EXPECT_EQ(originOf(m_loader->getComponentInterface("test::IShape", "round")), "Shapes/shapes.Circle");
  EXPECT_TRUE(m_log->lines().empty());

  EXPECT_EQ(originOf(m_loader->getComponentInterface("test::IShape", "2d")), "Partial/partial.Working");
  EXPECT_EQ(originOf(m_loader->getComponentInterface("test::INothing", "")), "null");
  EXPECT_TRUE(zqtest::bodiesMatch(
      m_log->bodies(), {"[zq::plugin::Loader::getComponentInterface] Plugin loader: Multiple components found for "
                        "interface \"test::IShape\" capability \"2d\".",
                        "[zq::plugin::Loader::listComponents] Plugin loader: No components found for interface "
                        "\"test::INothing\" capability \"\"."}));
}

TEST_F(LoaderTest, LanguageReachesLocalizableComponentsOnly) {
  EXPECT_EQ(m_loader->languageOfComponents(), L"");
  m_loader->setLanguageOfComponents(L"de");
  EXPECT_EQ(m_loader->languageOfComponents(), L"de");
  for (const auto& component : m_loader->listComponents(zqtest::IProbe::ID(), "")) {
    zq::IInterface& root = *component;
    auto* probe = static_cast<zqtest::IProbe*>(root.getInterface(zqtest::IProbe::ID()));
    const bool localizable = root.getInterface(zq::ICanBeLocalized::ID()) != nullptr;
    EXPECT_EQ(probe->language(), localizable ? L"de" : L"") << probe->origin();
  }
  EXPECT_EQ(m_loader->listComponents(zq::ICanBeLocalized::ID(), "").size(), 3u);
}

TEST_F(LoaderTest, SearchPathsChangeWithoutRebinding) {
  EXPECT_EQ(m_loader->searchPaths(), Loader::defaultSearchPaths());
  m_loader->setSearchPaths({L"/nowhere"});
  EXPECT_EQ(m_loader->searchPaths(), std::list<std::wstring>{L"/nowhere"});
  EXPECT_EQ(m_loader->listComponents("test::IShape", "").size(), 3u);
}

TEST_F(LoaderTest, ShutdownDestroysTheInstanceAndHeldComponentsLiveOn) {
  const boost::shared_ptr<zq::IComponent> held = m_loader->getComponentInterface("test::IShape", "round");
  ASSERT_TRUE(held);
  m_loader->setLanguageOfComponents(L"it");
  m_log->clear();
  Loader::shutdown();
  EXPECT_TRUE(
      zqtest::bodiesMatch(m_log->bodies(), {"[zq::plugin::Loader::~Loader] Plugin loader: Destroying instance...",
                                            "[zq::plugin::Loader::~Loader] Plugin loader: Instance destroyed."}));
  // The library stays open, so the held component still works.
  EXPECT_EQ(originOf(held), "Shapes/shapes.Circle");
  Loader::shutdown();  // a second shutdown does nothing

  Loader& again = Loader::instance();
  EXPECT_EQ(again.languageOfComponents(), L"");
  const boost::shared_ptr<zq::IComponent> fresh = again.getComponentInterface("test::IShape", "round");
  EXPECT_EQ(originOf(fresh), "Shapes/shapes.Circle");
  EXPECT_NE(fresh.get(), held.get());
}

TEST_F(LoaderTest, ConcurrentFirstUseMakesOneInstance) {
  Loader::shutdown();
  std::vector<Loader*> seen(4, nullptr);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < seen.size(); ++i) threads.emplace_back([&seen, i] { seen[i] = &Loader::instance(); });
  for (std::thread& t : threads) t.join();
  for (Loader* loader : seen) EXPECT_EQ(loader, seen.front());
  EXPECT_EQ(m_log->linesWith("Plugin loader: Creating instance...").size(), 2u);  // SetUp's and this one
}

// ---- fresh processes with PlugIns folders of their own -----------------------------------------

// Copies the probe program into a scratch folder, with the named pool packs in its PlugIns
// (or no PlugIns at all), and runs it with the given actions.
class LoaderProcessTest : public ::testing::Test {
 protected:
  void install(const std::vector<std::string>& packs, bool withFolder = true) {
    namespace fs = std::filesystem;
    fs::create_directory(m_scratch.path() / "bin");
    fs::copy_file(zqtest::pluginPool() / "zq_plugin_probe", probe());
    if (!withFolder) return;
    fs::create_directory(plugIns());
    for (const std::string& pack : packs) fs::copy_file(zqtest::pluginPool() / pack, plugIns() / pack);
  }
  zq::test::ChildResult run(std::vector<std::string> actions) {
    actions.insert(actions.begin(), probe().string());
    return zq::test::runChild(actions);
  }
  std::filesystem::path probe() const { return m_scratch.path() / "bin" / "zq_plugin_probe"; }
  std::filesystem::path plugIns() const { return m_scratch.path() / "bin" / "PlugIns"; }

  // The output's lines, log lines cut down to "[function] body".
  static std::vector<std::string> bodies(const std::string& output) {
    std::vector<std::string> result;
    std::istringstream in(output);
    for (std::string line; std::getline(in, line);) {
      const std::size_t bracket = line.find(" [");
      result.push_back(bracket == 32 ? line.substr(33) : line);
    }
    return result;
  }

  zqtest::ScratchFolder m_scratch;
};

TEST_F(LoaderProcessTest, MissingFolderGivesAWorkingEmptyLoader) {
  install({}, false);
  const zq::test::ChildResult result = run({"list", "", ""});
  ASSERT_TRUE(result.exited) << result.output;
  EXPECT_EQ(result.exitCode, 0) << result.output;
  const std::string b = "[zq::plugin::Loader::bindComponentPacks] ";
  EXPECT_TRUE(zqtest::bodiesMatch(
      bodies(result.output),
      {"[zq::plugin::Loader::Loader] Plugin loader: Creating instance...",
       b + "Plugin loader: Plugin search paths: ", b + "-\"" + plugIns().string() + "\"",
       b + "No such file or directory", b + "Plugin loader: No plugins found at all!",
       "[zq::plugin::Loader::Loader] Plugin loader: No component packs loaded.",
       "[zq::plugin::Loader::Loader] Plugin loader: Instance created.",
       "[zq::plugin::Loader::listComponents] Plugin loader: No components found for interface \"\" capability \"\".",
       "list:"}))
      << result.output;
}

TEST_F(LoaderProcessTest, EmptyFolderIsReportedByName) {
  install({});
  const zq::test::ChildResult result = run({});
  EXPECT_EQ(result.exitCode, 0) << result.output;
  const std::vector<std::string> lines = bodies(result.output);
  const std::string b = "[zq::plugin::Loader::bindComponentPacks] Plugin loader: ";
  EXPECT_EQ(std::count(lines.begin(), lines.end(), b + "No plugins found at \"" + plugIns().string() + "\"!"), 1)
      << result.output;
  EXPECT_EQ(std::count(lines.begin(), lines.end(), b + "No plugins found at all!"), 1) << result.output;
}

TEST_F(LoaderProcessTest, FirstPackKeepsASharedComponentName) {
  install({"DupA.so", "DupB.so"});
  std::filesystem::create_directory(plugIns() / "Folder.so");  // listed, but no library
  const zq::test::ChildResult result =
      run({"list", "test::INamed", "", "get", "test::INamed", "DupB", "language", "fr"});
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const std::vector<std::string> lines = bodies(result.output);
  auto has = [&lines](const std::string& line) { return std::count(lines.begin(), lines.end(), line) == 1; };
  // Both answer by interface, in binding order.
  EXPECT_TRUE(has("list: DupA/dup.Same DupB/dup.Same")) << result.output;
  EXPECT_TRUE(has("get: DupB/dup.Same")) << result.output;
  // Only the first holds the name, so only it is told the language.
  EXPECT_TRUE(has("language: DupA/dup.Same=fr DupB/dup.Same=")) << result.output;
  const std::string folder = (plugIns() / "Folder.so").string();
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [&folder](const std::string& line) {
                            return line.rfind(
                                       "[zq::plugin::Loader::bindComponentPacks] Plugin loader (exception): "
                                       "Error loading shared library \"" +
                                           folder + "\" : ",
                                       0) == 0;
                          }),
            1)
      << result.output;
}

}  // namespace
