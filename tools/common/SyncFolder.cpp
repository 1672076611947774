#include "common/SyncFolder.h"

#include <cerrno>
#include <filesystem>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace tools {

bool syncFolder(int descriptor) {
  return fsync(descriptor) == 0 || errno == EINVAL;
}

bool syncFolderOf(const std::string& path) {
  const std::string parent = std::filesystem::path(path).parent_path().string();
  const int folder = open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return true;
  const bool done = syncFolder(folder);
  const int code = errno;
  close(folder);
  errno = code;
  return done;
}

std::error_code makeFolder(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code error;
  std::vector<std::string> made;
  for (fs::path folder = fs::absolute(path, error); folder.has_relative_path();
       folder = folder.parent_path()) {
    if (fs::exists(folder, error)) break;
    made.push_back(folder.string());
  }
  fs::create_directories(path, error);
  if (error) return error;
  for (const std::string& folder : made) {
    if (!syncFolderOf(folder)) return {errno, std::generic_category()};
  }
  return {};
}

}  // namespace tools
