#pragma once

#include <string>
#include <system_error>

#include <sys/types.h>

#include "common/Program.h"

namespace tools {

// The path of the file that `path` leads to, or would: no symbolic link itself, and with a folder
// in front, as the functions below take an output. The folders on the way are left as they are
// named: who may write in a folder need not be allowed to look at those above it. Sets `error`
// where the system cannot tell: a file written to the unresolved path could take the place of a
// link.
std::string resolvedPath(const std::string& path, std::error_code& error);

// The path of scratch files beside an output, up to the letters that are picked.
std::string scratchPrefix(const std::string& program, const std::string& output);
// A new file of `mode`, named by `prefix` and letters; sets `name`. The prefix is a path seen from
// an open folder, or from the current one for AT_FDCWD. The file is held: it counts as one whose
// run lives until its last descriptor is closed. Returns its descriptor, open for reading and
// writing and owned by the caller, or -1 with errno set.
int makeScratch(int folder, const std::string& prefix, mode_t mode, std::string& name);

// Removes what killed runs have left beside an output, with a note. A scratch file that is held is
// kept, unless it is the output itself under a second name.
void clearLeftovers(const Session& session, const std::string& output);
// The same for the files in an open folder that have `prefix` in front of their letters.
void clearLeftovers(const Session& session, int folder, const std::string& shownFolder,
                    const std::string& prefix);

}  // namespace tools
