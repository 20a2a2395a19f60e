// What the plug-in tests share: where the test packs are, a scratch folder, and matching of
// log lines.
#pragma once

#include "tests/plugins/TestComponent.h"
#include "tests/support/ChildProcess.h"

#include <zq/foundation/Text.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace zqtest {

// The packs of a normal binding, beside the test program.
inline std::filesystem::path pluginFolder() {
  return std::filesystem::path(zq::test::selfExecutable()).parent_path() / "PlugIns";
}
// The probe program and the packs for tests that want a PlugIns folder of their own.
inline std::filesystem::path pluginPool() {
  return std::filesystem::path(zq::test::selfExecutable()).parent_path() / "PlugInPool";
}

inline std::wstring wide(const std::filesystem::path& path) { return zq::wconvert(path.string()); }

// The origin of a test component, "null" for an empty pointer.
inline std::string originOf(const boost::shared_ptr<zq::IComponent>& component) {
  return component ? testComponent(component)->origin : "null";
}

// A fresh temporary folder, removed with everything in it.
struct ScratchFolder {
  ScratchFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zq-plugin-XXXXXX").string();
    path = ::mkdtemp(&pattern[0]) ? pattern : throw std::runtime_error("mkdtemp failed");
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  std::filesystem::path path;
};

// `actual` with each line that starts as an expected line ending in "..." replaced by that
// line, for comparing with `expected` as a whole.
inline std::vector<std::string> matched(std::vector<std::string> actual, const std::vector<std::string>& expected) {
  for (std::size_t i = 0; i < std::min(actual.size(), expected.size()); ++i) {
    const std::string& want = expected[i];
    const std::size_t stem = want.size() - 3;
    if (want.size() >= 3 && want.compare(stem, 3, "...") == 0 && actual[i].compare(0, stem, want, 0, stem) == 0)
      actual[i] = want;
  }
  return actual;
}

}  // namespace zqtest
