#pragma once

#include <cstdint>

namespace hostkit {

// The selectors that a host sends to an importer, and the results that it tells apart.
enum Selector : int {
  SelectorInit = 0,
  SelectorShutDown = 1,
  SelectorQuietFile = 8,
  SelectorCloseFile = 9,
  SelectorGetIndFormat = 14,
  SelectorImportAudio7 = 25,
  SelectorGetInfo8 = 37,
  SelectorOpenFile8 = 39
};

enum Result : std::int32_t {
  ResultSuccess = 0,
  ResultNoAudio = 1,
  ResultCannotOpen = 31,
  ResultNothingRead = 38,
  ResultBadFormatIndex = 301,
  ResultInitialised = 400
};

}  // namespace hostkit
