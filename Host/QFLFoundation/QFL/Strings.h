#pragma once

#include <functional>
#include <string>

#include "QFL/Visibility.h"

namespace QFL {

// UTF-16 as UTF-8. Each surrogate without its partner becomes U+FFFD.
QFL_API std::string MakeStdString(const std::u16string& text);

// What MakeStdString does. An empty function brings the conversion above back.
using StdStringMaker = std::function<std::string(const std::u16string&)>;
QFL_API void SetStdStringMaker(StdStringMaker maker);

}  // namespace QFL
