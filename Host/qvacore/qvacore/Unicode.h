#pragma once

#include <functional>
#include <string>

#include "qvacore/Visibility.h"

namespace qvacore::utility {

// NUL-terminated UTF-16 as UTF-8. Each surrogate without its partner becomes U+FFFD.
QVACORE_API std::string UTF16to8(const char16_t* text);

// UTF-8 as UTF-16. Each byte that begins no well-formed sequence becomes U+FFFD.
QVACORE_API std::u16string UTF8to16(const std::string& text);

// What UTF16to8 does. An empty function brings the conversion above back.
using UTF16to8Converter = std::function<std::string(const char16_t*)>;
QVACORE_API void SetUTF16to8Converter(UTF16to8Converter converter);

}  // namespace qvacore::utility
