#include "common/FileStatus.h"

#include <cerrno>

#include <fmt/format.h>

#include "common/Failure.h"

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
  if (errno != ENOENT && errno != ENOTDIR) error.assign(errno, std::generic_category());
  return {};
}

bool isSameFile(const std::string& one, const std::string& other) {
  const auto status = [](const std::string& path) {
    std::error_code error;
    auto found = statusOf(path, error);
    if (error) {
      throw Failure(fmt::format("cannot look at {}: {}", shown(path), error.message()));
    }
    return found;
  };
  const auto first = status(one);
  const auto second = status(other);
  return first && second && first->st_dev == second->st_dev && first->st_ino == second->st_ino;
}

mode_t modeInPlaceOf(const std::optional<struct stat>& old) {
  return old ? static_cast<mode_t>(old->st_mode & 07777) : defaultMode();
}

}  // namespace tools
