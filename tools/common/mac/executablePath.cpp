#include "common/ExecutablePath.h"

#include <cstdint>
#include <string>

#include <mach-o/dyld.h>

namespace tools {

std::filesystem::path executablePath(std::error_code& error) {
  std::uint32_t size = 0;
  _NSGetExecutablePath(nullptr, &size);
  std::string path(size, '\0');
  _NSGetExecutablePath(path.data(), &size);
  return std::filesystem::canonical(path.c_str(), error);
}

}  // namespace tools
