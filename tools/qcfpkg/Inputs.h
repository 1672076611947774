#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Tool.h"

// What is to become an entry.
struct Input {
  std::string name;                   // of the entry; ends in "/" for a folder
  std::string source;                 // a file; "-" is standard input
  std::optional<std::uint64_t> size;  // unknown for what is no regular file
  std::time_t modified = 0;
  bool isFolder() const { return name.back() == '/'; }
};

// The inputs that "[NAME=]FILE" arguments mean, in their order and then by name. A file without a
// NAME goes by its own path, a folder is taken with everything in it; "=" in a path of a file that
// exists means itself. `package` itself is left out, and so are links to folders below a folder,
// with a note. Raises tools::Failure for what cannot be read, for a name that is not safe, that
// comes twice, that is a file and a folder, or that the package format keeps for itself.
std::vector<Input> collectInputs(const Tool& tool, const std::vector<std::string>& arguments,
                                 const std::string& package);

// One path cannot be a file and a folder: the name among `names` that cannot be beside `name`,
// empty for none. A folder's name ends in "/".
std::string conflictingName(const std::set<std::string>& names, const std::string& name);
