#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

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
// exists means itself. `package` itself is left out. Raises tools::Failure for what cannot be read,
// for a name that is not safe, that comes twice, or that the package format keeps for itself.
std::vector<Input> collectInputs(const std::vector<std::string>& arguments,
                                 const std::string& package);
