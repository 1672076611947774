#pragma once

#include <functional>
#include <string>

#include "qvacore/Visibility.h"

namespace qvacore::config {

// Texts in the user's language.
class QVACORE_API Localizer {
public:
  // The process's localizer.
  static Localizer& Get();

  // The text of a key. `keyAndDefault` is UTF-8: the key, "=", and the text to use where the key
  // has none.
  std::u16string GetString(const std::string& keyAndDefault) const;

  // What GetString does. Without one, every key has its default text.
  using Lookup = std::function<std::u16string(const std::string& keyAndDefault)>;
  void SetLookup(Lookup lookup);

private:
  Localizer() = default;
  Lookup fLookup;
};

}  // namespace qvacore::config
