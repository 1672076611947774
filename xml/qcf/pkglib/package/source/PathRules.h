#pragma once

#include <string>

#include "package/detail/Visibility.h"

namespace pkg {

// The characters that mean something in a path.
struct PathCharacters {
  char separator;
  char dot;
  char anchor;  // begins a fragment: nothing from its segment on is reduced
};

// Reduces `path`: empty and "." segments vanish, ".." takes the segment before it along and stops
// at the root, a trailing separator stays. Nothing left gives one separator. With `keepRoot` a
// leading separator stays. Raises 22 for an empty path.
QCF_API std::string reducePath(const std::string& path, bool keepRoot,
                               const PathCharacters& characters);

}  // namespace pkg
