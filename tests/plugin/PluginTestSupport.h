// What the plug-in tests share: where the test packs are, a scratch folder, and matching of
// log lines.
#pragma once

#include "tests/plugins/TestComponent.h"
#include "tests/support/ChildProcess.h"

#include <zq/foundation/Text.h>

#include <gtest/gtest.h>

#include <boost/shared_ptr.hpp>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace zqtest {

inline std::filesystem::path testProgramFolder() {
  return std::filesystem::path(zq::test::selfExecutable()).parent_path();
}
// The packs of a normal binding, beside the test program.
inline std::filesystem::path pluginFolder() { return testProgramFolder() / "PlugIns"; }
// Packs and the probe program for tests that want a folder of their own.
inline std::filesystem::path pluginPool() { return testProgramFolder() / "PlugInPool"; }

inline std::wstring wide(const std::filesystem::path& path) { return zq::wconvert(path.string()); }

// A fresh folder below the system's temporary folder, removed with everything in it.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zq-plugin-XXXXXX").string();
    if (::mkdtemp(&pattern[0])) m_path = pattern;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    if (!m_path.empty()) std::filesystem::remove_all(m_path, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::filesystem::path& path() const { return m_path; }

 private:
  std::filesystem::path m_path;
};

// The origin a test component reports, "null" for an empty pointer, "?" for a component
// that is no test component.
inline std::string originOf(const boost::shared_ptr<zq::IComponent>& component) {
  if (!component) return "null";
  zq::IInterface& root = *component;
  auto* probe = static_cast<IProbe*>(root.getInterface(IProbe::ID()));
  return probe ? probe->origin() : "?";
}

// Expected log bodies ("[function] text"); one ending in "..." matches any line that starts
// with what comes before it.
inline ::testing::AssertionResult bodiesMatch(const std::vector<std::string>& actual,
                                              const std::vector<std::string>& expected) {
  const std::string ellipsis = "...";
  for (std::size_t i = 0; i < std::max(actual.size(), expected.size()); ++i) {
    const std::string have = i < actual.size() ? actual[i] : "(no line)";
    const std::string want = i < expected.size() ? expected[i] : "(no line)";
    bool same = have == want;
    if (!same && want.size() >= ellipsis.size() && want.compare(want.size() - 3, 3, ellipsis) == 0)
      same = i < actual.size() && have.compare(0, want.size() - 3, want, 0, want.size() - 3) == 0;
    if (!same)
      return ::testing::AssertionFailure() << "line " << i << "\n  expected: " << want << "\n  actual:   " << have;
  }
  return ::testing::AssertionSuccess();
}

}  // namespace zqtest
