#include "common/SyncFolder.h"

#include <cerrno>
#include <filesystem>

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

}  // namespace tools
