#include "PackageFile.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "common/FileStatus.h"
#include "common/Leftovers.h"
#include "common/RemoveOnSignal.h"
#include "common/SyncFolder.h"

PackageFile::PackageFile(const std::string& path, bool isNew, std::error_code error)
    : fName(path), fPath(tools::resolvedPath(path, error)), fIsNew(isNew) {
  if (error) fail(error.message());
}

PackageFile::~PackageFile() {
  dropFormerScratch();
  if (!fScratch.empty()) unlink(fScratch.c_str());
  if (fScratchLock >= 0) close(fScratchLock);
  if (fLock >= 0) close(fLock);
  tools::removeOnSignal({});
}

void PackageFile::fail(const std::string& reason) const {
  throw tools::Failure(
      fmt::format("cannot {} {}: {}", fIsNew ? "create" : "change", tools::shown(fName), reason));
}

PackageFile PackageFile::existing(const Tool& tool, const std::string& path) {
  return {tool, path};
}

PackageFile PackageFile::created(const Tool& tool, const std::string& path, bool overwrite) {
  return {tool, path, overwrite};
}

PackageFile::PackageFile(const Tool& tool, const std::string& path) : PackageFile(path, false) {
  lock();
  fProgram = tool.program;
  tools::clearLeftovers(tool, fPath);
}

PackageFile::PackageFile(const Tool& tool, const std::string& path, bool overwrite)
    : PackageFile(path, true) {
  fOverwrite = overwrite;
  if (path == "-") fail("a package is a file, not standard output; ./- is one of that name");
  if (const auto old = status()) {
    if (S_ISDIR(old->st_mode)) fail("it is a folder");
    if (!S_ISREG(old->st_mode)) fail("it exists and is not a regular file");
    if (!overwrite) fail("it exists; --overwrite replaces it");
    lock();
  }
  fProgram = tool.program;
  tools::clearLeftovers(tool, fPath);
}

// A run that waited for another one's rename would hold the lock of a file that has no name any
// more: the file at the path must be the one that is locked.
void PackageFile::lock() {
  for (;;) {
    fLock = open(fPath.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
    struct stat locked {};
    if (fLock < 0 || fstat(fLock, &locked) != 0) fail(tools::systemReason());
    if (!S_ISREG(locked.st_mode)) fail("it is not a regular file");
    if (flock(fLock, LOCK_EX | LOCK_NB) != 0) {
      fail(errno == EWOULDBLOCK ? "another run is changing it" : tools::systemReason());
    }
    const auto named = status();
    if (named && named->st_ino == locked.st_ino && named->st_dev == locked.st_dev) return;
    close(fLock);
    fLock = -1;
  }
}

std::string PackageFile::newScratch() {
  dropFormerScratch();
  std::string name;
  const int descriptor =
      tools::makeScratch(AT_FDCWD, tools::scratchPrefix(fProgram, fPath), 0600, name);
  if (descriptor < 0) fail(tools::systemReason());
  fFormerScratch = std::exchange(fScratch, std::move(name));  // no memory is needed from here on
  tools::removeOnSignal(fScratch);
  // Held as long as the program runs: two runs may create one package at once, and neither must
  // take the other's file for a leftover.
  if (fScratchLock >= 0) close(fScratchLock);
  fScratchLock = descriptor;
  return fScratch;
}

void PackageFile::dropFormerScratch() {
  if (!fFormerScratch.empty()) unlink(fFormerScratch.c_str());
  fFormerScratch.clear();
}

std::optional<struct stat> PackageFile::status() const {
  std::error_code error;
  const auto status = tools::statusOf(fPath, error);
  if (error) fail(error.message());
  return status;
}

void PackageFile::adoptStatus(int descriptor) const {
  const auto old = status();
  if (old && fchown(descriptor, old->st_uid, old->st_gid) != 0) {
    // Only root may give files away; the mode is kept all the same.
  }
  if (fchmod(descriptor, tools::modeInPlaceOf(old)) != 0) fail(tools::systemReason());
}

void PackageFile::commit() {
  const int descriptor = open(fScratch.c_str(), O_RDWR | O_CLOEXEC);
  if (descriptor < 0) fail(tools::systemReason());
  try {
    adoptStatus(descriptor);
    if (fsync(descriptor) != 0) fail(tools::systemReason());
  } catch (...) {
    close(descriptor);
    throw;
  }
  close(descriptor);
  // A link never takes another file's place: whoever made one of that name meanwhile keeps it.
  const bool done = fOverwrite ? rename(fScratch.c_str(), fPath.c_str()) == 0
                               : link(fScratch.c_str(), fPath.c_str()) == 0;
  if (!done) fail(tools::systemReason());
  if (!fOverwrite) unlink(fScratch.c_str());
  fScratch.clear();
  tools::removeOnSignal({});
  if (!tools::syncFolderOf(fPath)) fail(tools::systemReason());
}

void PackageFile::syncInPlace() {
  if (fsync(fLock) != 0) fail(tools::systemReason());
}
