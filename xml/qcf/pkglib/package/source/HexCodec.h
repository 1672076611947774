#pragma once

#include <cstddef>

#include "package/detail/Visibility.h"

// Bytes as text and back: two digits a byte, the high nibble first, in upper case. Text is never
// rejected: a character below 'A' counts as a decimal digit, any other as a letter digit, whatever
// it is.

namespace pkg::hex {

// Writes 2 * `size` characters, not terminated, to `text`.
QCF_API void encode(const void* data, std::size_t size, char* text);

// The byte of a pair of digits. The low digit is not masked, so a lower-case letter there leaves a
// stray bit 5.
QCF_API unsigned char decodePair(char high, char low);

// Decodes `count` pairs of `text` into `data`.
QCF_API void decode(const char* text, std::size_t count, void* data);

}  // namespace pkg::hex
