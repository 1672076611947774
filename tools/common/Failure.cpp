#include "common/Failure.h"

#include <cerrno>
#include <system_error>

#include <fmt/format.h>

namespace tools {

std::string shown(const std::string& name) {
  std::string text;
  for (const char character : name) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7F) {
      text += fmt::format("\\x{:02x}", byte);
    } else {
      text.push_back(character);
    }
  }
  return text;
}

std::string systemReason() {
  return std::generic_category().message(errno);
}

}  // namespace tools
