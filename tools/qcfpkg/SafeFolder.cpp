#include "SafeFolder.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "common/Failure.h"
#include "common/Leftovers.h"
#include "common/RemoveOnSignal.h"
#include "common/SyncFolder.h"

namespace {

// Not after the file that is written: one look at a folder finds what was left of all.
constexpr auto kScratchPrefix = ".qcfpkg-";

std::vector<std::string> segmentsOf(const std::string& path) {
  std::vector<std::string> segments;
  std::size_t at = 0;
  while (at <= path.size()) {
    const std::size_t slash = std::min(path.find('/', at), path.size());
    segments.push_back(path.substr(at, slash - at));
    at = slash + 1;
  }
  return segments;
}

std::string withoutFinalSlash(const std::string& name) {
  const bool isFolder = name.size() > 1 && name.back() == '/';
  return isFolder ? name.substr(0, name.size() - 1) : name;
}

[[noreturn]] void failAt(const std::string& path, const std::string& reason) {
  throw tools::Failure(fmt::format("cannot write {}: {}", tools::shown(path), reason));
}

// A symbolic link answers as such to O_NOFOLLOW, and with O_DIRECTORY as something that is none.
std::string stepReason() {
  if (errno == ELOOP || errno == ENOTDIR) return "a file or a symbolic link is in the way";
  return tools::systemReason();
}

}  // namespace

std::string unsafeReason(const std::string& name) {
  if (name.empty()) return "the name is empty";
  if (name.front() == '/') return "the name is absolute";
  if (name.find('\\') != std::string::npos) return "the name has a backslash";
  const bool hasControl = std::any_of(name.begin(), name.end(), [](char character) {
    return static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
  });
  if (hasControl) return "the name has control characters";
  if (name.size() >= 2 && name[1] == ':' &&
      std::isalpha(static_cast<unsigned char>(name[0])) != 0) {
    return "the name begins with a drive";
  }
  for (const std::string& segment : segmentsOf(withoutFinalSlash(name))) {
    if (segment == "..") return "the name leads out of the folder";
    if (segment.empty() || segment == ".") return "the name has an empty segment";
  }
  return {};
}

SafeFolder::SafeFolder(const tools::Session& session, const std::string& path)
    : fSession(session), fPath(path) {
  if (const std::error_code error = tools::makeFolder(path)) failAt(path, error.message());
  fDescriptor = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fDescriptor < 0) failAt(path, tools::systemReason());
}

SafeFolder::~SafeFolder() {
  close(fDescriptor);
}

int SafeFolder::openFolder(const std::vector<std::string>& steps, const std::string& path) const {
  int folder = dup(fDescriptor);
  for (const std::string& step : steps) {
    if (folder < 0) break;
    const bool isThere =
        mkdirat(folder, step.c_str(), 0777) == 0 ? tools::syncFolder(folder) : errno == EEXIST;
    if (!isThere) {
      const std::string reason = tools::systemReason();
      close(folder);
      failAt(path, reason);
    }
    const int next = openat(folder, step.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    const int code = errno;
    close(folder);
    errno = code;
    folder = next;
  }
  if (folder < 0) failAt(path, stepReason());
  return folder;
}

void SafeFolder::createFolder(const std::string& path) const {
  const std::string shownPath = fPath + "/" + path;
  close(openFolder(segmentsOf(withoutFinalSlash(path)), shownPath));
}

bool SafeFolder::isNew(int folder) {
  struct stat status {};
  return fstat(folder, &status) == 0 && fSeen.insert({status.st_dev, status.st_ino}).second;
}

void SafeFolder::sync() const {
  for (const std::vector<std::string>& steps : fChanged) {
    const int folder = openFolder(steps, fPath);
    const bool done = tools::syncFolder(folder);
    const std::string reason = tools::systemReason();
    close(folder);
    if (!done) failAt(fPath, reason);
  }
}

std::unique_ptr<SafeFolder::File> SafeFolder::createFile(const std::string& path, bool overwrite) {
  std::vector<std::string> steps = segmentsOf(path);
  const std::string leaf = steps.back();
  steps.pop_back();
  const std::string shownPath = fPath + "/" + path;
  const int folder = openFolder(steps, shownPath);
  if (isNew(folder)) {
    fChanged.push_back(steps);
    const std::string shownFolder = shownPath.substr(0, shownPath.size() - leaf.size() - 1);
    tools::clearLeftovers(fSession, folder, shownFolder, kScratchPrefix);
  }
  return std::unique_ptr<File>(new File(folder, leaf, shownPath, overwrite));
}

SafeFolder::File::File(int folder, const std::string& leaf, std::string shownPath, bool overwrite)
    : fFolder(folder), fLeaf(leaf), fShownPath(std::move(shownPath)), fOverwrite(overwrite) {
  try {
    refuseWhatIsInTheWay();
    fDescriptor = tools::makeScratch(fFolder, kScratchPrefix, 0666, fScratch);
    if (fDescriptor < 0) fail();
    tools::removeOnSignal(fShownPath.substr(0, fShownPath.size() - fLeaf.size()) + fScratch);
  } catch (...) {
    if (fDescriptor >= 0) {
      unlinkat(fFolder, fScratch.c_str(), 0);
      close(fDescriptor);
    }
    close(fFolder);
    throw;
  }
}

void SafeFolder::File::refuseWhatIsInTheWay() const {
  struct stat status {};
  const bool exists = fstatat(fFolder, fLeaf.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  if (exists && S_ISDIR(status.st_mode)) failAt(fShownPath, "a folder is in the way");
  if (exists && !fOverwrite) failAt(fShownPath, "it exists; --overwrite replaces it");
}

SafeFolder::File::~File() {
  if (!fScratch.empty()) unlinkat(fFolder, fScratch.c_str(), 0);
  tools::removeOnSignal({});
  if (fDescriptor >= 0) close(fDescriptor);
  close(fFolder);
}

void SafeFolder::File::fail() const {
  failAt(fShownPath, tools::systemReason());
}

void SafeFolder::File::write(const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t count = ::write(fDescriptor, data, size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail();
    data += count;
    size -= static_cast<std::size_t>(count);
  }
}

// A rename replaces a symbolic link itself, never what it points at.
void SafeFolder::File::commit(std::time_t modified) {
  if (modified != 0) {
    const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, timespec{modified, 0}};
    futimens(fDescriptor, times.data());  // a wrong date is no failure
  }
  if (fsync(fDescriptor) != 0) fail();
  // Closing may be what tells that a disk is full. The second descriptor keeps the file held.
  const int held = fcntl(fDescriptor, F_DUPFD_CLOEXEC, 0);
  if (held < 0) fail();
  const int written = std::exchange(fDescriptor, held);
  if (close(written) != 0) fail();
  if (fOverwrite) {
    if (renameat(fFolder, fScratch.c_str(), fFolder, fLeaf.c_str()) != 0) fail();
    fScratch.clear();
  } else if (linkat(fFolder, fScratch.c_str(), fFolder, fLeaf.c_str(), 0) != 0) {
    fail();  // somebody else was quicker
  }
}
