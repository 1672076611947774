#include "common/ExecutablePath.h"

namespace tools {

std::filesystem::path executablePath(std::error_code& error) {
  return std::filesystem::read_symlink("/proc/self/exe", error);
}

}  // namespace tools
