#include "package/source/getTemporaryItemsDir.h"

#include <cstdlib>
#include <vector>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pkg {

namespace {

std::string homeDirectory() {
  if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
    return {};
  }
  return found->pw_dir;
}

// $XDG_CACHE_HOME where it is an absolute path, else ~/.cache: the XDG Base Directory definition.
std::string cacheDirectory() {
  if (const char* cache = std::getenv("XDG_CACHE_HOME"); cache != nullptr && *cache == '/') {
    return cache;
  }
  const std::string home = homeDirectory();
  return home.empty() ? home : home + "/.cache";
}

bool isDirectory(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Whether `path` is a directory now. Another process may make it at the same time.
bool ensureDirectory(const std::string& path) {
  return isDirectory(path) || mkdir(path.c_str(), 0700) == 0 || isDirectory(path);
}

}  // namespace

void getTemporaryItemsDir(std::string& out) {
  const std::string cache = cacheDirectory();
  if (cache.empty() || !ensureDirectory(cache)) return;
  const std::string items = cache + "/TemporaryItems";
  if (ensureDirectory(items)) out = items;
}

}  // namespace pkg
