#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace tools {

// What a program ends with.
enum ExitCode : int { ExitDone = 0, ExitFindings = 1, ExitUsage = 2, ExitFailed = 3 };

// A failure as the person at the terminal is told of it: one line, which says what, which file, and
// why.
class Failure : public std::runtime_error {
public:
  explicit Failure(const std::string& line, ExitCode code = ExitFailed)
      : std::runtime_error(line), fCode(code) {}
  ExitCode code() const noexcept { return fCode; }

private:
  ExitCode fCode;
};

// Whoever read standard output has stopped: nobody is left to be told, so the program ends without
// a word.
class ReaderGone : public std::exception {};

// A name that can be shown: control characters, which could break a line or steer a terminal, marks
// that turn the direction of writing, and bytes that are no UTF-8 as escapes; an empty one as a
// pair of quotes.
std::string shown(const std::string& name);
// Whether it has control characters or marks that turn the direction of writing.
bool hasControls(const std::string& name);

// The length of the UTF-8 character that begins at `at`, which is inside the text; 0 where none
// does.
std::size_t utf8Length(const std::string& text, std::size_t at);

// The system's words for errno as it stands; these programs' own for a folder.
std::string systemReason();

}  // namespace tools
