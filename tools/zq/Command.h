// The command table of the zq tool: each subsystem's file registers its commands.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace zqtool {

struct Command {
  std::string name;
  std::string usage;     // arguments, e.g. "TEXT..."
  std::string summary;   // one line for the help
  // Runs with the arguments after the command name; returns the exit status.
  std::function<int(const std::vector<std::string>& args)> run;
};

// Adds a command at static initialisation; returns true so it can initialise a variable.
bool registerCommand(Command command);
const std::vector<Command>& commands();

}  // namespace zqtool
