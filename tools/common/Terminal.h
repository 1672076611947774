#pragma once

#include <cstddef>

#include <fmt/core.h>

namespace tools {

// Whether standard error is read by a person.
bool errorsGoToTerminal();
// Whether that terminal moves its cursor and takes colours when told to.
bool terminalTakesEscapes();
// Its width; 80 where it doesn't tell.
std::size_t terminalColumns();

// Prints to standard error. Where that cannot be written, nobody is told, and work goes on.
void vprintError(fmt::string_view format, fmt::format_args arguments);
template <class... Arguments>
void printError(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
  vprintError(format, fmt::make_format_args(arguments...));
}

}  // namespace tools
