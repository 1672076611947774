#pragma once

#include <cstdlib>
#include <string>

// The built bundle, or that of the set of instructions under test.
inline std::string builtBundle() {
  const char* const instructions = std::getenv("QSND_TEST_INSTRUCTIONS");
  if (instructions == nullptr) return QSND_BUNDLE;
  return std::string(QSND_FORCED_BUNDLES "/") + instructions + "/ImporterQSND.bundle";
}
