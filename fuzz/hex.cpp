// Hexadecimal text: what is encoded comes back, and any text decodes to something, which stays
// within the room that there is. Numbers are their bytes, of as much of a text as a C string has.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "package/detail/BasePkgHexStrings.h"

#include "Input.h"

namespace {

pkg::BasePkgHexStrings<>& hex() {
  return *pkg::BasePkgHexStrings<>::getInstance();
}

// Returns what `room` bytes take of the text. They are a block of their own, whose ends are
// guarded.
std::string decoded(const std::string& text, std::size_t room) {
  const std::unique_ptr<char[]> bytes(new char[room]);
  unsigned long length = room;
  const unsigned long held = hex().decodeHexString(text, bytes.get(), length);
  if (held != text.size() / 2 || length != std::min<std::size_t>(room, held)) std::abort();
  return {bytes.get(), length};
}

template <class Number>
void tryAs(const std::string& text) {
  std::string bytes = decoded(text.c_str(), sizeof(Number));
  bytes.resize(sizeof(Number), '\0');
  auto number = static_cast<Number>(-1);
  if (&hex().hexStringToI(text, number) != &number) std::abort();
  if (std::memcmp(&number, bytes.data(), sizeof(Number)) != 0) std::abort();

  const std::string own = hex().iToHexString(number);
  if (own != hex().encodeHexString(bytes.data(), bytes.size())) std::abort();
  auto back = static_cast<Number>(~number);
  if (hex().hexStringToI(own, back) != number) std::abort();
}

template <class... Numbers>
void tryAsEach(const std::string& text) {
  (tryAs<Numbers>(text), ...);
}

}  // namespace

void fuzz::run(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned room = input.below(64);
  const std::string bytes = input.rest();
  decoded(bytes, room);
  const std::string text = hex().encodeHexString(bytes.data(), bytes.size());
  if (decoded(text, bytes.size()) != bytes) std::abort();
  for (const std::string& any : {bytes, text})
    tryAsEach<char, unsigned char, short, unsigned short, int, unsigned, long long,
              unsigned long long>(any);
}
