#pragma once

#include <filesystem>
#include <system_error>

namespace tools {

// The running program's own file, without symbolic links. Sets `error` where the system cannot
// tell.
std::filesystem::path executablePath(std::error_code& error);

}  // namespace tools
