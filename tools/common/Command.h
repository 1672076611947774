#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// The parser behind these takes seconds to compile, so no other source knows it.
namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace tools {

// An option of a command as it is described: a handle, good for as long as the program's run.
class Option {
public:
  explicit Option(CLI::Option& option) : fOption(&option) {}

  Option& required();
  // What the help calls its value, as "BYTES".
  Option& typeName(const std::string& name);
  // Its value is a FOLDER, which must have a name.
  Option& folder();
  // Its value is from `least` to `most`, both included.
  Option& range(std::int64_t least, std::int64_t most);
  Option& oneOf(const std::vector<std::string>& values);

  // Whether the command line has it; known when the command runs.
  bool given() const;

private:
  CLI::Option* fOption;
};

// A command of a program as it is described, or the program itself: a handle, too. The help tells
// options and commands in the order in which they are added.
class Command {
public:
  explicit Command(CLI::App& app) : fApp(&app) {}

  // For the program: what it does, and the version that --version prints.
  void about(const std::string& what, const std::string& version);
  // The end of the help: what is to be known, and examples. The commands that are added behind it
  // have it, too, unless they have their own.
  void footer(const std::string& text);

  // Adds a command. Who has commands must be given one.
  Command command(const std::string& name, const std::string& what);

  // Each adds an option, whose value goes to `value`, which must outlive the run. `names` are as
  // "-C,--folder", or as "FILE" for what goes without a name; vectors take all of those.
  Option option(const std::string& names, std::string& value, const std::string& what);
  Option option(const std::string& names, std::vector<std::string>& value, const std::string& what);
  Option option(const std::string& names, int& value, const std::string& what);
  Option option(const std::string& names, std::int64_t& value, const std::string& what);
  Option option(const std::string& names, std::uint64_t& value, const std::string& what);
  // Hands the value to `take`, which may raise Failure.
  Option option(const std::string& names, const std::function<void(const std::string&)>& take,
                const std::string& what);
  // Adds an option without a value, which sets `value`.
  void flag(const std::string& names, bool& value, const std::string& what);

  // What the command does, once all its options have their values.
  void run(const std::function<void()>& work);

private:
  CLI::App* fApp;
};

// Parses the command line as `describe` sets it up, and runs the command that it names, or prints
// the help or the version. Raises Failure for wrong use, and whatever the command raises.
void runCommand(const std::string& program, const std::function<void(Command&)>& describe, int argc,
                char** argv);

}  // namespace tools
