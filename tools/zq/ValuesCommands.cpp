// Commands over the value types.
#include "Command.h"

#include <zq/values/Hash.h>

#include <iomanip>
#include <iostream>

namespace {

int hashCommand(const std::vector<std::string>& args) {
  if (args.empty()) {
    std::cerr << "zq hash: give one or more texts\n";
    return 2;
  }
  for (const std::string& text : args) {
    const auto h = zq::Hash::hash(reinterpret_cast<const unsigned char*>(text.data()), text.size());
    std::cout << "0x" << std::hex << std::setw(8) << std::setfill('0') << h << std::dec << "  " << text << "\n";
  }
  return 0;
}

const bool registered = zqtool::registerCommand({"hash", "TEXT...", "32-bit string hash of each text", hashCommand});

}  // namespace
