#pragma once

#include <string>
#include <system_error>

namespace tools {

// Makes the names in the folder of `path` durable, such as the one that a rename has just given.
// Returns false with errno set when the system could not. A folder that cannot be opened, and a
// file system that knows no such thing, count as done: nothing more can be had there.
bool syncFolderOf(const std::string& path);
// The same of a folder that is open.
bool syncFolder(int descriptor);

// Makes a folder, and those that lead to it, where missing, and their names durable.
std::error_code makeFolder(const std::string& path);

}  // namespace tools
