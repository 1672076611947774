#include "common/FileStatus.h"

#include <cerrno>

namespace tools {
namespace {

// What a new file would get from open(): umask can only be read by setting it.
mode_t defaultMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

std::optional<struct stat> statusOf(const std::string& path, std::error_code& error) {
  struct stat found {};
  error.clear();
  if (stat(path.c_str(), &found) == 0) return found;
  if (errno != ENOENT) error.assign(errno, std::generic_category());
  return {};
}

mode_t modeInPlaceOf(const std::optional<struct stat>& old) {
  return old ? static_cast<mode_t>(old->st_mode & 07777) : defaultMode();
}

}  // namespace tools
