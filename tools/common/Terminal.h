#pragma once

#include <cstddef>

namespace tools {

// Whether standard error is read by a person.
bool errorsGoToTerminal();
// Whether that terminal moves its cursor and takes colours when told to.
bool terminalTakesEscapes();
// Its width; 80 where it doesn't tell.
std::size_t terminalColumns();

}  // namespace tools
