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

// How many folders of a way stay open, whatever its length: what comes next is most often near.
constexpr std::size_t kMostOpen = 8;

std::vector<std::string> segmentsOf(const std::string& path) {
  std::vector<std::string> segments;
  if (path.empty()) return segments;
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

// A folder in an open one, made where missing.
int openStep(int folder, const std::string& name, const std::string& shownPath) {
  const bool isThere =
      mkdirat(folder, name.c_str(), 0777) == 0 ? tools::syncFolder(folder) : errno == EEXIST;
  if (!isThere) failAt(shownPath, tools::systemReason());
  const int step = openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (step < 0) failAt(shownPath, stepReason());
  return step;
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
  goBack(0);
  close(fDescriptor);
}

void SafeFolder::Step::close() {
  if (folder >= 0) ::close(std::exchange(folder, -1));
}

void SafeFolder::goBack(std::size_t steps) {
  for (; fWay.size() > steps; fWay.pop_back())
    fWay.back().close();
}

int SafeFolder::openFolder(const std::string& path, const std::string& shownPath) {
  const std::vector<std::string> steps = segmentsOf(path);
  std::size_t common = 0;
  while (common < std::min(steps.size(), fWay.size()) && fWay[common].name == steps[common])
    ++common;
  goBack(common);
  const auto last = [this] { return fWay.empty() ? fDescriptor : fWay.back().folder; };
  if (last() < 0) goBack(0);
  while (fWay.size() < steps.size()) {
    const std::string& name = steps[fWay.size()];
    const int parent = last();
    fWay.push_back({name, -1});  // has room for what is opened now
    fWay.back().folder = openStep(parent, name, shownPath);
    if (fWay.size() > kMostOpen) fWay[fWay.size() - 1 - kMostOpen].close();
  }
  return last();
}

void SafeFolder::createFolder(const std::string& path) {
  openFolder(withoutFinalSlash(path), fPath + "/" + path);
}

void SafeFolder::sync() {
  for (const std::string& path : fChanged) {
    if (!tools::syncFolder(openFolder(path, fPath))) failAt(fPath, tools::systemReason());
  }
}

std::unique_ptr<SafeFolder::File> SafeFolder::createFile(const std::string& path, bool overwrite) {
  const std::size_t slash = path.rfind('/');
  const std::string parent = slash == std::string::npos ? "" : path.substr(0, slash);
  const std::string leaf = path.substr(slash + 1);
  const std::string shownPath = fPath + "/" + path;
  const int folder = openFolder(parent, shownPath);
  if (fChanged.insert(parent).second) {
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
