#pragma once

#include <functional>
#include <ostream>
#include <string>

#include "QFL/Visibility.h"

namespace QFL {

// Tells the host that a plug-in has caught an exception. `disabled` is the caller's flag: once the
// host sets it, the caller stays silent. Returns whether the exception is to be thrown on.
QFL_API bool ThrowAfterUnhandledExceptionAlert(bool& disabled, const std::string& message);

// What the alert does. Without one, nothing is shown, no flag is set, and nothing is thrown on.
using UnhandledExceptionAlert = std::function<bool(bool& disabled, const std::string& message)>;
QFL_API void SetUnhandledExceptionAlert(UnhandledExceptionAlert alert);

// Ends a line: the stream's own newline, then a flush.
QFL_API std::ostream& ENDL(std::ostream& stream);

}  // namespace QFL
