#include "common/Command.h"

#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "common/Failure.h"

namespace tools {
namespace {

// The command that the words have led to, and its name with those before it.
std::pair<const CLI::App*, std::string> commandReached(const CLI::App& app) {
  const CLI::App* command = &app;
  std::string name = app.get_name();
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
    name += " " + command->get_name();
  }
  return {command, name};
}

std::string usageText(const CLI::App& app, const CLI::ParseError& error) {
  const auto [command, name] = commandReached(app);
  std::string text = error.what();
  // The parser tells what is missing, whatever stands in its place.
  if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) {
    const bool wantsCommand = command->get_require_subcommand_min() > 0;
    if (wantsCommand) text = "a command is required";
    const auto strangers = app.remaining(true);
    const std::string stranger = strangers.empty() ? "" : strangers.front();
    if (stranger.size() > 1 && stranger.front() == '-') {
      text = fmt::format("there is no option {}", stranger);
      if (!wantsCommand && stranger[1] != '-')
        text += fmt::format("; ./{} is a file of that name", stranger);
    } else if (wantsCommand && !stranger.empty()) {
      text = fmt::format("there is no command {}", stranger);
    }
  }
  return fmt::format("{}; see {} --help", shown(text), name);
}

// The help tells nothing of what the parser checks: the descriptions do.
CLI::Validator silent(CLI::Validator check) {
  return check.description("");
}

}  // namespace

Option& Option::required() {
  fOption->required();
  return *this;
}

Option& Option::typeName(const std::string& name) {
  fOption->type_name(name);
  return *this;
}

Option& Option::folder() {
  fOption->check([](const std::string& name) {
    return std::string(name.empty() ? "the FOLDER has no name" : "");
  });
  return typeName("FOLDER");
}

Option& Option::range(std::int64_t least, std::int64_t most) {
  fOption->check(silent(CLI::Range(least, most)));
  return *this;
}

Option& Option::oneOf(const std::vector<std::string>& values) {
  fOption->check(silent(CLI::IsMember(values)));
  return *this;
}

bool Option::given() const {
  return fOption->count() != 0;
}

void Command::about(const std::string& what, const std::string& version) {
  fApp->description(what);
  fApp->set_version_flag("--version", fApp->get_name() + " " + version);
}

void Command::footer(const std::string& text) {
  fApp->footer(text);
}

Command Command::command(const std::string& name, const std::string& what) {
  fApp->require_subcommand(1);
  return Command(*fApp->add_subcommand(name, what));
}

Option Command::option(const std::string& names, std::string& value, const std::string& what) {
  return Option(*fApp->add_option(names, value, what));
}

Option Command::option(const std::string& names, std::vector<std::string>& value,
                       const std::string& what) {
  return Option(*fApp->add_option(names, value, what));
}

Option Command::option(const std::string& names, int& value, const std::string& what) {
  return Option(*fApp->add_option(names, value, what));
}

Option Command::option(const std::string& names, std::int64_t& value, const std::string& what) {
  return Option(*fApp->add_option(names, value, what));
}

Option Command::option(const std::string& names, std::uint64_t& value, const std::string& what) {
  return Option(*fApp->add_option(names, value, what));
}

Option Command::option(const std::string& names,
                       const std::function<void(const std::string&)>& take,
                       const std::string& what) {
  return Option(*fApp->add_option_function<std::string>(names, take, what));
}

void Command::flag(const std::string& names, bool& value, const std::string& what) {
  fApp->add_flag(names, value, what);
}

void Command::run(const std::function<void()>& work) {
  fApp->callback(work);
}

void runCommand(const std::string& program, const std::function<void(Command&)>& describe, int argc,
                char** argv) {
  CLI::App app;
  app.name(program);
  app.fallthrough();  // the program's options may stand behind its commands
  Command described(app);
  describe(described);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& request) {
    app.exit(request);  // help or version, to standard output
  } catch (const CLI::ParseError& error) {
    throw Failure(usageText(app, error), ExitUsage);
  }
}

}  // namespace tools
