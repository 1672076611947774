#include "common/SyncFolder.h"

#include <cerrno>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

namespace tools {

bool syncFolderOf(const std::string& path) {
  const std::string parent = std::filesystem::path(path).parent_path().string();
  const int folder = open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return true;
  const int result = fsync(folder);
  const int code = errno;
  close(folder);
  errno = code;
  return result == 0 || code == EINVAL;
}

}  // namespace tools
