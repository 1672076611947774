#pragma once

#include <filesystem>

namespace tools {

// The running program's own file, without symbolic links.
std::filesystem::path executablePath();

}  // namespace tools
