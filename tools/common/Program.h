#pragma once

#include <functional>
#include <string>

#include "common/Command.h"
#include "common/Failure.h"

namespace tools {

// What every command of a program knows and fills in.
struct Session {
  std::string program;
  bool quiet = false;
  ExitCode code = ExitDone;

  // Tells a failure that the program survives, and lets it end with the failure's code.
  void report(const Failure& failure);
  // A note on standard error, unless quiet.
  void note(const std::string& line) const;
};

// Runs the command that the command line names, as runCommand does. Turns whatever goes wrong, a
// want of memory at any point too, into one line on standard error and an exit code. Standard
// output is complete when it returns ExitDone.
int runProgram(Session& session, const std::function<void(Command&)>& describe, int argc,
               char** argv);

}  // namespace tools
