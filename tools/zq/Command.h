// The frame of the zq tool: each subsystem's file adds its commands to the one command line,
// and what a chosen command does runs only after the whole line has been parsed.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <stdexcept>
#include <string>

namespace zqtool {

// Exit statuses: success, a failure (a mismatch, a missing file, a wrong key), a usage error.
enum Status { kSuccess = 0, kFailure = 1, kUsage = 2 };

// Ends the running command with "zq: <text>" on standard error and the given status.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& text, int status = kFailure) : std::runtime_error(text), m_status(status) {}
  int status() const { return m_status; }

 private:
  int m_status;
};

// A bad argument that only the command itself can judge (an unknown digest name, say).
class UsageError : public Failure {
 public:
  explicit UsageError(const std::string& text) : Failure(text, kUsage) {}
};

// What a command runs once parsing is done; returns the exit status.
using Action = std::function<int()>;

// Adds a subcommand to `parent` whose `action` runs when it is the one chosen.
CLI::App* addCommand(CLI::App& parent, const std::string& name, const std::string& description, Action action);
// Adds a group of subcommands of which one must be chosen (as `zq url resolve`).
CLI::App* addGroup(CLI::App& parent, const std::string& name, const std::string& description);

// Each command file registers one function at static initialisation that adds its commands.
bool registerCommands(std::function<void(CLI::App& app)> adder);

// One line on standard error: "zq: <text>".
void report(const std::string& text);

}  // namespace zqtool
