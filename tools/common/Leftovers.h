#pragma once

#include <string>

#include "common/Program.h"

namespace tools {

// The name, without folder, of scratch files for an output, up to the letters that mkstemp() picks.
std::string scratchPrefix(const std::string& program, const std::string& output);
// As mkstemp() takes it: beside the output.
std::string scratchTemplate(const std::string& program, const std::string& output);

// Marks an open scratch file as one whose run lives, until the descriptor is closed.
void holdScratch(int descriptor);

// Removes what killed runs have left beside an output, with a note. A scratch file that is held is
// kept, unless it is the output itself under a second name.
void clearLeftovers(const Session& session, const std::string& output);

}  // namespace tools
