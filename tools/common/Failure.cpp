#include "common/Failure.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <system_error>

#include <fmt/format.h>

namespace tools {

std::size_t utf8Length(const std::string& text, std::size_t at) {
  const auto lead = static_cast<unsigned char>(text[at]);
  const std::size_t length = lead < 0x80   ? 1
                             : lead < 0xC2 ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF5 ? 4
                                           : 0;
  if (length == 0 || text.size() - at < length) return 0;
  std::uint32_t point = length == 1 ? lead : lead & (0x7Fu >> length);
  for (std::size_t k = 1; k < length; ++k) {
    const auto byte = static_cast<unsigned char>(text[at + k]);
    if ((byte & 0xC0) != 0x80) return 0;
    point = point << 6 | (byte & 0x3Fu);
  }
  const bool overlong = (length == 3 && point < 0x800) || (length == 4 && point < 0x10000);
  const bool surrogate = point >= 0xD800 && point < 0xE000;
  return overlong || surrogate || point > 0x10FFFF ? 0 : length;
}

namespace {

// The UTF-8 character of `length` bytes at `at`.
bool isControl(const std::string& text, std::size_t at, std::size_t length) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
  switch (length) {
    case 1:
      return byte(0) < 0x20 || byte(0) == 0x7F;
    case 2:  // U+0080 to U+009F, and the Arabic letter mark
      return (byte(0) == 0xC2 && byte(1) < 0xA0) || (byte(0) == 0xD8 && byte(1) == 0x9C);
    case 3: {
      const unsigned last = byte(2);
      // U+200E and U+200F, U+202A to U+202E; U+2066 to U+2069
      return byte(0) == 0xE2 && ((byte(1) == 0x80 && (last == 0x8E || last == 0x8F ||
                                                      (last >= 0xAA && last <= 0xAE))) ||
                                 (byte(1) == 0x81 && last >= 0xA6 && last <= 0xA9));
    }
    default:
      return false;
  }
}

}  // namespace

bool hasControls(const std::string& name) {
  for (std::size_t at = 0; at < name.size();) {
    const std::size_t length = std::max<std::size_t>(utf8Length(name, at), 1);
    if (isControl(name, at, length)) return true;
    at += length;
  }
  return false;
}

std::string shown(const std::string& name) {
  if (name.empty()) return "''";
  std::string text;
  for (std::size_t at = 0; at < name.size();) {
    const std::size_t length = utf8Length(name, at);
    const std::size_t taken = std::max<std::size_t>(length, 1);
    if (length != 0 && !isControl(name, at, length)) {
      text += name.substr(at, taken);
    } else {
      for (std::size_t i = 0; i < taken; ++i)
        text += fmt::format("\\x{:02x}", static_cast<unsigned char>(name[at + i]));
    }
    at += taken;
  }
  return text;
}

std::string systemReason() {
  if (errno == EISDIR) return "it is a folder";
  return std::generic_category().message(errno);
}

}  // namespace tools
