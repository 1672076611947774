#include "common/Terminal.h"

#include <cstdlib>
#include <string_view>

#include <sys/ioctl.h>
#include <unistd.h>

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

}  // namespace tools
