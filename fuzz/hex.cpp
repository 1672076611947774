// Hexadecimal text: what is encoded comes back, and any text decodes to something, which stays
// within the room that there is.

#include <cstdlib>
#include <memory>

#include "package/detail/BasePkgHexStrings.h"

#include "Input.h"

namespace {

// Returns what `room` bytes take of the text. They are a block of their own, whose ends are
// guarded.
std::string decoded(const std::string& text, std::size_t room) {
  const std::unique_ptr<char[]> bytes(new char[room]);
  unsigned long length = room;
  auto* const hex = pkg::BasePkgHexStrings<>::getInstance();
  const unsigned long held = hex->decodeHexString(text, bytes.get(), length);
  if (held != text.size() / 2 || length != std::min<std::size_t>(room, held)) std::abort();
  return {bytes.get(), length};
}

}  // namespace

void fuzz::run(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned room = input.below(64);
  const std::string bytes = input.rest();
  decoded(bytes, room);
  const std::string text =
      pkg::BasePkgHexStrings<>::getInstance()->encodeHexString(bytes.data(), bytes.size());
  if (decoded(text, bytes.size()) != bytes) std::abort();
}
