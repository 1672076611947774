#pragma once

#include <functional>
#include <string>

#include "common/Failure.h"

// Its header takes seconds to compile: what adds no options does without.
namespace CLI {
class App;
}

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

// For options that take a FOLDER: what is wrong with its name; empty for a good one.
std::string folderFault(const std::string& name);

// Parses the command line as `describe` sets it up, which runs the chosen command's callback. Turns
// whatever goes wrong, a want of memory at any point too, into one line on standard error and an
// exit code. Standard output is complete when it returns ExitDone.
int runProgram(Session& session, const std::function<void(CLI::App&)>& describe, int argc,
               char** argv);

}  // namespace tools
