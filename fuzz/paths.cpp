// Paths: a reduced path is its own reduction and holds no step upward before an anchor; references
// resolve to such paths.

#include <cstdlib>

#include "package/QCFPackage.h"
#include "package/source/PathRules.h"

#include "Input.h"

namespace {

constexpr pkg::PathCharacters kCharacters{'/', '.', '#'};

void checkReduced(const std::string& path) {
  const std::string plain = path.substr(0, path.find('#'));
  if (path.empty() || plain.find("//") != std::string::npos) std::abort();
  const std::string steps = '/' + plain + '/';
  const bool hasAnchor = plain.size() != path.size();
  const std::size_t upward = steps.find("/../");
  if (!hasAnchor && (upward != std::string::npos || steps.find("/./") != std::string::npos)) {
    std::abort();
  }
}

}  // namespace

void fuzz::run(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const bool keepRoot = input.below(2) != 0;
  const std::string path = input.rest();
  try {
    const std::string reduced = pkg::reducePath(path, keepRoot, kCharacters);
    checkReduced(reduced);
    if (pkg::reducePath(reduced, keepRoot, kCharacters) != reduced) std::abort();
  } catch (pkg::PackageException<>&) {
    if (!path.empty()) std::abort();
  }
}
