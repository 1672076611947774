#include "common/PackageType.h"

namespace tools {

std::string typeFault(const std::string& type) {
  const auto slash = type.find('/');
  if (slash == std::string::npos || slash == 0 || slash + 1 == type.size()) {
    return "a type is like application/x-notes";
  }
  if (type.size() > 255) return "a type has at most 255 characters";
  const std::string allowed = "!#$&-^_.+";
  for (std::size_t i = 0; i < type.size(); ++i) {
    const char c = type[i];
    const bool good = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                      allowed.find(c) != std::string::npos || i == slash;
    if (!good) return "a type is like application/x-notes, without spaces and parameters";
  }
  return {};
}

}  // namespace tools
