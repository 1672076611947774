#include "common/ExecutablePath.h"

namespace tools {

std::filesystem::path executablePath() {
  return std::filesystem::read_symlink("/proc/self/exe");
}

}  // namespace tools
