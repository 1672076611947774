#include "common/Program.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "common/RemoveOnSignal.h"
#include "common/Terminal.h"

namespace tools {
namespace {

bool errorsInColour() {
  const char* const noColour = std::getenv("NO_COLOR");
  return terminalTakesEscapes() && (noColour == nullptr || *noColour == '\0');
}

void tell(const std::string& program, const std::string& line) {
  if (errorsInColour()) {
    printError("\x1b[1;31m{}:\x1b[0m {}\n", program, line);
  } else {
    printError("{}: {}\n", program, line);
  }
}

std::string firstLine(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

void runTelling(Session& session, const std::function<void(Command&)>& describe, int argc,
                char** argv) {
  try {
    runCommand(session.program, describe, argc, argv);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
      throw std::system_error(errno, std::generic_category());
    }
  } catch (const Failure& failure) {
    session.report(failure);
  } catch (const ReaderGone&) {
    session.code = ExitFailed;
  } catch (const std::system_error& error) {
    // What prints tells a full output without saying which.
    const bool isOutput = std::ferror(stdout) != 0;
    if (isOutput && error.code() == std::errc::broken_pipe) {
      session.code = ExitFailed;
    } else {
      session.report(Failure(isOutput ? "cannot write standard output: " + error.code().message()
                                      : firstLine(error.what())));
    }
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    session.report(Failure(firstLine(error.what())));
  }
}

// A file that is opened where a standard stream is closed would take what is meant for that. The
// null device stands there instead, opened the wrong way round, so that using it fails as before.
void holdStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) >= 0) continue;
    // The lowest free descriptor is this one.
    if (open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0) return;
  }
}

const char* gProgram = "";
std::terminate_handler gTerminateBefore = nullptr;

// The destructors of the JSON library that results are told with need memory, and no exception gets
// out of them. What terminates the program for another reason does so as before.
[[noreturn]] void tellAndEnd() {
  std::set_terminate(gTerminateBefore);
  try {
    if (const std::exception_ptr cause = std::current_exception()) std::rethrow_exception(cause);
  } catch (const std::bad_alloc&) {
    removeScratch();
    tell(gProgram, "out of memory");
    std::_Exit(ExitFailed);
  } catch (...) {
    gTerminateBefore();
  }
  std::abort();
}

}  // namespace

void Session::report(const Failure& failure) {
  tell(program, failure.what());
  code = failure.code();
}

void Session::note(const std::string& line) const {
  if (!quiet) printError("{}: {}\n", program, line);
}

int runProgram(Session& session, const std::function<void(Command&)>& describe, int argc,
               char** argv) {
  holdStandardStreams();
  gProgram = session.program.c_str();
  gTerminateBefore = std::set_terminate(tellAndEnd);
  try {
    runTelling(session, describe, argc, argv);
  } catch (const std::bad_alloc&) {
    // There may be no memory even for what a Failure says.
    tell(session.program, "out of memory");
    session.code = ExitFailed;
  }
  std::set_terminate(gTerminateBefore);
  return session.code;
}

}  // namespace tools
