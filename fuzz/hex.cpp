// Hexadecimal text: what is encoded comes back, and any text decodes to something.

#include <cstdlib>

#include "package/detail/BasePkgHexStrings.h"

#include "Input.h"

void fuzz::run(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  auto* const hex = pkg::BasePkgHexStrings<>::getInstance();
  const unsigned room = input.below(64);
  const std::string bytes = input.rest();

  std::string decoded(room, '\0');
  unsigned long length = room;
  hex->decodeHexString(bytes, decoded.data(), length);
  if (length > room) std::abort();

  const std::string text = hex->encodeHexString(bytes.data(), bytes.size());
  std::string back(bytes.size(), '\0');
  length = bytes.size();
  hex->decodeHexString(text, back.data(), length);
  if (length != bytes.size() || back != bytes) std::abort();
}
