#pragma once

#include <string>
#include <string_view>

namespace host {

constexpr char32_t kReplacementCharacter = 0xFFFD;

// Takes the first code point off `text`, which must not be empty. A surrogate without its partner
// gives U+FFFD.
inline char32_t takeCodePoint(std::u16string_view& text) {
  const char32_t unit = text.front();
  text.remove_prefix(1);
  if (unit < 0xD800 || unit >= 0xE000) return unit;
  const bool paired =
      unit < 0xDC00 && !text.empty() && text.front() >= 0xDC00 && text.front() < 0xE000;
  if (!paired) return kReplacementCharacter;
  const char32_t low = text.front();
  text.remove_prefix(1);
  return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
}

inline void appendUTF8(std::string& bytes, char32_t point) {
  const auto append = [&bytes](char32_t byte) { bytes.push_back(static_cast<char>(byte)); };
  const auto appendTail = [&](int shift) { append(0x80 | ((point >> shift) & 0x3F)); };
  if (point < 0x80) {
    append(point);
    return;
  }
  if (point < 0x800) {
    append(0xC0 | (point >> 6));
  } else if (point < 0x10000) {
    append(0xE0 | (point >> 12));
    appendTail(6);
  } else {
    append(0xF0 | (point >> 18));
    appendTail(12);
    appendTail(6);
  }
  appendTail(0);
}

inline std::string encodeUTF8(std::u16string_view text) {
  std::string bytes;
  while (!text.empty())
    appendUTF8(bytes, takeCodePoint(text));
  return bytes;
}

}  // namespace host
