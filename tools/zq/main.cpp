// zq: uses the library without writing C++. `zq --help` lists the commands.
#include "Command.h"

#include <iostream>
#include <memory>
#include <utility>
#include <vector>

namespace zqtool {

namespace {

std::vector<std::function<void(CLI::App&)>>& adders() {
  static std::vector<std::function<void(CLI::App&)>> list;
  return list;
}

// The action of the subcommand that was chosen; set while parsing, run after it.
Action& chosen() {
  static Action action;
  return action;
}

}  // namespace

bool registerCommands(std::function<void(CLI::App& app)> adder) {
  adders().push_back(std::move(adder));
  return true;
}

CLI::App* addCommand(CLI::App& parent, const std::string& name, const std::string& description, Action action) {
  CLI::App* command = parent.add_subcommand(name, description);
  command->callback([action = std::move(action)] { chosen() = action; });
  return command;
}

CLI::App* addGroup(CLI::App& parent, const std::string& name, const std::string& description) {
  CLI::App* group = parent.add_subcommand(name, description);
  group->require_subcommand(1);
  return group;
}

void report(const std::string& text) { std::cerr << "zq: " << text << std::endl; }

}  // namespace zqtool

namespace {

CLI::App* findCommand(CLI::App& parent, const std::string& name) {
  for (CLI::App* command : parent.get_subcommands({})) {
    if (command->check_name(name)) return command;
  }
  return nullptr;
}

// The deepest command that the arguments name, and the first word that names none where a
// command was expected (empty if there is none).
std::pair<CLI::App*, std::string> commandPath(CLI::App& app, int argc, char** argv) {
  CLI::App* current = &app;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word.empty() || word[0] == '-') break;
    if (current->get_subcommands({}).empty()) break;
    CLI::App* next = findCommand(*current, word);
    if (next == nullptr) return {current, word};
    current = next;
  }
  return {current, std::string()};
}

std::string fullName(const CLI::App* command) {
  std::string name = command->get_name();
  for (const CLI::App* p = command->get_parent(); p != nullptr; p = p->get_parent()) {
    name.insert(0, p->get_name() + " ");
  }
  return name;
}

// Help and version go to standard output with status 0; any other parse error is one line on
// standard error, pointing at the help of the command it concerns, and status 2.
int parseFailure(CLI::App& app, const CLI::ParseError& e, CLI::App* command) {
  if (e.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) return app.exit(e, std::cout, std::cerr);
  zqtool::report(std::string(e.what()) + " (see '" + fullName(command) + " --help')");
  return zqtool::kUsage;
}

// The help of `command` itself: App::help would show that of a chosen subcommand instead.
std::string helpOf(const CLI::App& command) {
  return command.get_formatter()->make_help(&command, fullName(&command), CLI::AppFormatMode::Normal);
}

// Text as troff shows it literally.
std::string troff(const std::string& text) {
  std::string out;
  bool lineStart = true;
  for (const char c : text) {
    if (lineStart && (c == '.' || c == '\'')) out += "\\&";
    out += c == '\\' ? std::string("\\e") : c == '-' ? std::string("\\-") : std::string(1, c);
    lineStart = c == '\n';
  }
  return out;
}

void writeManualSections(std::ostream& out, const CLI::App& command) {
  const std::vector<const CLI::App*> subcommands = command.get_subcommands([](const CLI::App*) { return true; });
  if (command.get_parent() != nullptr && command.get_name() != "help") {
    out << ".SS \"" << troff(fullName(&command)) << "\"\n.nf\n" << troff(helpOf(command)) << ".fi\n";
  }
  for (const CLI::App* sub : subcommands) writeManualSections(out, *sub);
}

// The manual page zq.1, made from the same help texts as --help.
void writeManual(std::ostream& out, const CLI::App& app) {
  out << ".TH ZQ 1 \"\" \"zq " ZQ_TOOL_VERSION "\" \"User Commands\"\n"
      << ".SH NAME\nzq \\- the zq library from the command line\n"
      << ".SH SYNOPSIS\n.B zq\nCOMMAND [SUBCOMMAND] [OPTIONS] [ARGS]\n"
      << ".SH DESCRIPTION\n.nf\n"
      << troff(helpOf(app)) << ".fi\n.SH COMMANDS\n";
  writeManualSections(out, app);
}

int runTool(int argc, char** argv) {
  CLI::App app{
      "The zq library from the command line: digests, password hashes, encrypted files, RSA keys,\n"
      "Base64, URLs, addresses and version numbers in the library's own formats.\n"
      "Exit status: 0 success, 1 failure (a mismatch, a missing file, a wrong key), 2 usage error.",
      "zq"};
  app.set_version_flag("--version", "zq " ZQ_TOOL_VERSION);
  app.require_subcommand(0, 1);
  auto helpWords = std::make_shared<std::vector<std::string>>();
  auto manual = std::make_shared<bool>(false);
  CLI::App* help = zqtool::addCommand(app, "help", "this help, or that of a command", [&app, helpWords, manual] {
    if (*manual) {
      writeManual(std::cout, app);
      return zqtool::kSuccess;
    }
    CLI::App* command = &app;
    for (const std::string& word : *helpWords) {
      CLI::App* next = findCommand(*command, word);
      if (next == nullptr)
        throw zqtool::UsageError("unknown command '" + word + "' (see '" + fullName(command) + " --help')");
      command = next;
    }
    std::cout << helpOf(*command);
    return zqtool::kSuccess;
  });
  help->add_option("COMMAND", *helpWords, "a command and its subcommands");
  help->add_flag("--man", *manual, "all of the help as the manual page zq.1");
  for (const auto& add : zqtool::adders()) add(app);

  const auto [command, unknown] = commandPath(app, argc, argv);
  if (!unknown.empty() && command->get_require_subcommand_min() + (command == &app ? 1 : 0) > 0) {
    zqtool::report("unknown command '" + unknown + "' (see '" + fullName(command) + " --help')");
    return zqtool::kUsage;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return parseFailure(app, e, command);
  }
  if (!zqtool::chosen()) {
    std::cout << app.help();
    return zqtool::kSuccess;
  }
  try {
    const int status = zqtool::chosen()();
    std::cout.flush();
    if (!std::cout) {
      zqtool::report("cannot write to standard output");
      return zqtool::kFailure;
    }
    return status;
  } catch (const zqtool::Failure& e) {
    std::cout.flush();
    zqtool::report(e.what());
    return e.status();
  } catch (const std::exception& e) {
    std::cout.flush();
    zqtool::report(e.what());
    return zqtool::kFailure;
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return runTool(argc, argv);
  } catch (...) {
    // Only the set-up of the command line itself can get here, and its report may fail too.
    return zqtool::kFailure;
  }
}
