#include "qvacore/Unicode.h"

#include <cstddef>
#include <utility>

#include "UTF16.h"

namespace qvacore::utility {
namespace {

void appendUTF16(std::u16string& text, char32_t point) {
  if (point < 0x10000) {
    text.push_back(static_cast<char16_t>(point));
  } else {
    text.push_back(static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10)));
    text.push_back(static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
  }
}

// The leading byte's row: how many bytes follow, its payload bits, and the least point that needs
// the length.
struct Sequence {
  std::size_t tail;
  char32_t point;
  char32_t least;
};

Sequence sequenceOf(unsigned char lead) {
  if (lead < 0x80) return {0, lead, 0};
  if (lead >= 0xC0 && lead < 0xE0) return {1, lead & 0x1Fu, 0x80};
  if (lead >= 0xE0 && lead < 0xF0) return {2, lead & 0x0Fu, 0x800};
  if (lead >= 0xF0 && lead < 0xF8) return {3, lead & 0x07u, 0x10000};
  return {0, host::kReplacementCharacter, 0};
}

// The code point at `index`, which moves behind it; behind one byte only where the sequence is not
// well-formed.
char32_t nextCodePoint(const std::string& text, std::size_t& index) {
  const Sequence sequence = sequenceOf(static_cast<unsigned char>(text[index++]));
  if (sequence.tail > text.size() - index) return host::kReplacementCharacter;
  char32_t point = sequence.point;
  for (std::size_t i = 0; i < sequence.tail; ++i) {
    const auto byte = static_cast<unsigned char>(text[index + i]);
    if ((byte & 0xC0) != 0x80) return host::kReplacementCharacter;
    point = (point << 6) | (byte & 0x3Fu);
  }
  const bool surrogate = point >= 0xD800 && point < 0xE000;
  if (point < sequence.least || point > 0x10FFFF || surrogate) return host::kReplacementCharacter;
  index += sequence.tail;
  return point;
}

UTF16to8Converter& installedConverter() {
  static UTF16to8Converter converter;
  return converter;
}

}  // namespace

std::string UTF16to8(const char16_t* text) {
  return installedConverter() ? installedConverter()(text) : host::encodeUTF8(text);
}

std::u16string UTF8to16(const std::string& text) {
  std::u16string units;
  for (std::size_t index = 0; index < text.size();) {
    appendUTF16(units, nextCodePoint(text, index));
  }
  return units;
}

void SetUTF16to8Converter(UTF16to8Converter converter) {
  installedConverter() = std::move(converter);
}

}  // namespace qvacore::utility
