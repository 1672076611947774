#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/TempDir.h"

namespace support {

// A program to run, found on PATH as a shell would.
struct Command {
  std::vector<std::string> arguments;                                 // the program first
  std::string input = {};                                             // its standard input
  std::filesystem::path folder = {};                                  // where it runs; empty: here
  std::vector<std::pair<std::string, std::string>> environment = {};  // set on top of this one's
};

struct Finished {
  int status = 0;  // its exit status; 128 + n when signal n ended it; 127 when it could not be run
  std::string out;
  std::string err;
  bool succeeded() const { return status == 0; }
};

namespace detail {

// A command made ready before the fork, for what its child may do after it.
class Prepared {
public:
  explicit Prepared(const Command& command)
      : fFolder(command.folder.string()),
        fArguments(command.arguments),
        fEnvironment(environmentOf(command)) {}

  // In the child: only what is safe between fork and exec, as other threads may have held any lock.
  // 127 ends it where the program cannot be run.
  [[noreturn]] void become(const int (&files)[3]) const {
    for (int descriptor = 0; descriptor < 3; ++descriptor) {
      if (::dup2(files[descriptor], descriptor) < 0) ::_exit(127);
    }
    if (!fFolder.empty() && ::chdir(fFolder.c_str()) != 0) ::_exit(127);
    ::execvpe(fArgumentPointers[0], fArgumentPointers.data(), fEnvironmentPointers.data());
    ::_exit(127);
  }

private:
  // This process's environment with what the command sets.
  static std::vector<std::string> environmentOf(const Command& command) {
    std::vector<std::string> all;
    for (char** variable = environ; *variable != nullptr; ++variable) {
      const std::string text = *variable;
      bool isReplaced = false;
      for (const auto& replacement : command.environment)
        isReplaced = isReplaced || text.compare(0, text.find('='), replacement.first) == 0;
      if (!isReplaced) all.push_back(text);
    }
    for (const auto& [name, value] : command.environment)
      all.push_back(name + "=" + value);
    return all;
  }

  // Pointers to texts, as exec takes them.
  static std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts)
      pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
  }

  const std::string fFolder;
  const std::vector<std::string> fArguments;
  const std::vector<std::string> fEnvironment;
  const std::vector<char*> fArgumentPointers = pointersTo(fArguments);
  const std::vector<char*> fEnvironmentPointers = pointersTo(fEnvironment);
};

inline int openOrThrow(const std::filesystem::path& path, int flags) {
  const int file = ::open(path.c_str(), flags | O_CLOEXEC, 0600);
  if (file < 0) throw std::runtime_error("cannot open " + path.string());
  return file;
}

}  // namespace detail

// Runs a program to its end and captures what it writes. Files stand in for pipes, so that no
// amount of output can block it.
inline Finished run(const Command& command) {
  const TempDir capture;
  capture.write("in", command.input);
  const int files[3] = {
      detail::openOrThrow(capture / "in", O_RDONLY),
      detail::openOrThrow(capture / "out", O_WRONLY | O_CREAT | O_TRUNC),
      detail::openOrThrow(capture / "err", O_WRONLY | O_CREAT | O_TRUNC),
  };
  const detail::Prepared prepared(command);

  const pid_t child = ::fork();
  if (child == 0) prepared.become(files);
  for (const int file : files)
    ::close(file);
  if (child < 0) throw std::runtime_error("cannot fork");
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) throw std::runtime_error("cannot wait for " + command.arguments[0]);
  }
  Finished finished;
  finished.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  finished.out = capture.read("out");
  finished.err = capture.read("err");
  return finished;
}

// Runs a program that must succeed; returns its standard output. Raises std::runtime_error with
// what it complained of.
inline std::string mustRun(const Command& command) {
  Finished finished = run(command);
  if (!finished.succeeded()) {
    throw std::runtime_error(command.arguments[0] + " ended with " +
                             std::to_string(finished.status) + ": " + finished.err);
  }
  return std::move(finished.out);
}

// Runs a python3 script that must succeed, with sys.argv[1:] as given, in `folder`; returns its
// standard output.
inline std::string python(const std::string& script, const std::vector<std::string>& arguments = {},
                          const std::filesystem::path& folder = {}) {
  Command command{{"python3", "-c", script}, {}, folder, {}};
  command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
  return mustRun(command);
}

}  // namespace support
