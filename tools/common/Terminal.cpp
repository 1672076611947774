#include "common/Terminal.h"

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include <sys/ioctl.h>
#include <unistd.h>

#include <fmt/format.h>

namespace tools {

bool errorsGoToTerminal() {
  return isatty(STDERR_FILENO) != 0;
}

bool terminalTakesEscapes() {
  const char* const terminal = std::getenv("TERM");
  return errorsGoToTerminal() && terminal != nullptr && std::string_view(terminal) != "dumb";
}

std::size_t terminalColumns() {
  winsize size{};
  const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
  return known ? size.ws_col : 80;
}

void vprintError(fmt::string_view format, fmt::format_args arguments) {
  fmt::memory_buffer line;  // short ones need no memory
  fmt::vformat_to(std::back_inserter(line), format, arguments);
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace tools
