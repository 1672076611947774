#pragma once

#include <optional>
#include <string>
#include <system_error>

#include <sys/stat.h>

namespace tools {

// What the path leads to; nothing where there is no file. Sets `error` where the system cannot
// tell: a file may be there all the same.
std::optional<struct stat> statusOf(const std::string& path, std::error_code& error);

// Whether both paths lead to one file. Raises Failure where the system cannot tell.
bool isSameFile(const std::string& one, const std::string& other);

// The rights of a new file in the place of an old one, or of none.
mode_t modeInPlaceOf(const std::optional<struct stat>& old);

}  // namespace tools
