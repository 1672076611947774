#include "qvacore/Localizer.h"

#include <utility>

#include "qvacore/Unicode.h"

namespace qvacore::config {

Localizer& Localizer::Get() {
  static Localizer localizer;
  return localizer;
}

std::u16string Localizer::GetString(const std::string& keyAndDefault) const {
  if (fLookup) return fLookup(keyAndDefault);
  const auto equals = keyAndDefault.find('=');
  if (equals == std::string::npos) return {};
  return utility::UTF8to16(keyAndDefault.substr(equals + 1));
}

void Localizer::SetLookup(Lookup lookup) {
  fLookup = std::move(lookup);
}

}  // namespace qvacore::config
