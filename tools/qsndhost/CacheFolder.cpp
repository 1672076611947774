#include "CacheFolder.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "package/QCFPackage.h"

#include "common/Failure.h"

namespace fs = std::filesystem;

namespace {

// Bytes of its audio entry when inflated; 0 for one that is stored or cannot be read. No more than
// deflate makes of a file of that size, whatever the entry claims: at most 1032 bytes of one.
std::int64_t inflatedSize(const std::string& document) {
  try {
    const auto most = static_cast<std::int64_t>(1032 * fs::file_size(document));
    pkg::QCFPackageFactory factory;
    const auto package = factory.openPackage(document, std::ios::in, nullptr, nullptr, nullptr);
    const auto audio = package->getFile("Mixdown.wav", true);
    const bool isStored = audio->getCompressionMethod() == pkg::CompressionStored;
    return isStored ? 0 : std::clamp<std::int64_t>(audio->getSize64(), 0, most);
  } catch (const std::exception&) {
    return 0;
  }
}

// As the importer finds it.
std::string cacheFolder() {
  const char* const cache = std::getenv("XDG_CACHE_HOME");
  if (cache != nullptr && *cache == '/') return cache;
  const char* const home = std::getenv("HOME");
  if (home != nullptr && *home != '\0') return fs::path(home) / ".cache";
  const passwd* const user = getpwuid(getuid());
  return fs::path(user == nullptr ? "" : user->pw_dir) / ".cache";
}

// Writes so many bytes to a new file in the folder, which is gone afterwards. False with errno set
// where that fails.
bool hasRoom(const std::string& folder, std::int64_t size) {
  std::string name = folder + "/qsndhost-XXXXXX";
  const int file = mkstemp(name.data());
  if (file < 0) return false;
  unlink(name.c_str());
  const std::vector<char> block(1 << 16);
  while (size > 0) {
    const auto wanted = std::min(size, static_cast<std::int64_t>(block.size()));
    const ssize_t written = write(file, block.data(), static_cast<std::size_t>(wanted));
    if (written < 0 && errno != EINTR) break;
    size -= std::max<ssize_t>(written, 0);
  }
  const int reason = errno;
  close(file);
  errno = reason;
  return size == 0;
}

}  // namespace

std::string cacheFault(const std::string& document) {
  const std::int64_t size = inflatedSize(document);
  if (size == 0) return {};
  const std::string cache = cacheFolder();
  const std::string items = cache + "/TemporaryItems";
  const auto fault = [](const std::string& folder) {
    const std::string reason = tools::systemReason();
    return fmt::format("its audio cannot be inflated into the cache folder {}: {}",
                       tools::shown(folder), reason);
  };
  for (const std::string& folder : {cache, items}) {
    std::error_code error;
    if (!fs::is_directory(folder, error) && mkdir(folder.c_str(), 0700) != 0) {
      if (errno == EEXIST) errno = ENOTDIR;
      return fault(folder);
    }
  }
  return hasRoom(items, size) ? std::string() : fault(items);
}
