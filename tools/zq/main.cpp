// zq: uses the library without writing C++. `zq help` lists the commands.
#include "Command.h"

#include <algorithm>
#include <iostream>

namespace zqtool {

namespace {
std::vector<Command>& table() {
  static std::vector<Command> commands;
  return commands;
}
}  // namespace

bool registerCommand(Command command) {
  table().push_back(std::move(command));
  return true;
}

const std::vector<Command>& commands() {
  std::sort(table().begin(), table().end(), [](const Command& a, const Command& b) { return a.name < b.name; });
  return table();
}

}  // namespace zqtool

namespace {

int help(std::ostream& out) {
  out << "usage: zq COMMAND [ARGUMENTS]\n\ncommands:\n";
  for (const zqtool::Command& c : zqtool::commands()) {
    const std::string head = c.name + " " + c.usage;
    out << "  " << head << std::string(head.size() < 28 ? 28 - head.size() : 1, ' ') << c.summary << "\n";
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || std::string(argv[1]) == "help" || std::string(argv[1]) == "--help") return help(std::cout);
  const std::string name = argv[1];
  for (const zqtool::Command& c : zqtool::commands()) {
    if (c.name == name) return c.run(std::vector<std::string>(argv + 2, argv + argc));
  }
  std::cerr << "zq: unknown command '" << name << "'\n";
  help(std::cerr);
  return 2;
}
