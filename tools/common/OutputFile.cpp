#include "common/OutputFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "common/Failure.h"
#include "common/FileStatus.h"
#include "common/Leftovers.h"
#include "common/RemoveOnSignal.h"
#include "common/SyncFolder.h"

namespace tools {
namespace {

std::string temporaryFolder() {
  std::error_code error;
  const auto folder = std::filesystem::temp_directory_path(error);
  if (!error) return folder.string();
  const char* const named = std::getenv("TMPDIR");
  throw Failure(fmt::format("cannot make a temporary file in {}: {}",
                            shown(named == nullptr ? folder.string() : named), error.message()));
}

void writeAll(int descriptor, const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(descriptor, bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) throw std::filesystem::filesystem_error("", {errno, std::generic_category()});
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
}

}  // namespace

OutputFile::OutputFile(const Session& session, const std::string& target) {
  if (target.empty()) {
    throw Failure("an output has no name; - is standard output", ExitUsage);
  }
  if (target != "-") {
    fName = fWritten = shown(target);
    std::error_code error;
    fTarget = resolvedPath(target, error);
    if (error) throw failure(error.message());
  } else if (isatty(STDOUT_FILENO) != 0) {
    throw Failure("standard output is a terminal; name a file, or a pipe behind it", ExitUsage);
  }
  const bool beside = !fTarget.empty() && isPlainFileOrAbsent();
  std::string place = fTarget;
  if (beside) {
    clearLeftovers(session, fTarget);
  } else {
    const std::string folder = temporaryFolder();
    place = (std::filesystem::path(folder) / "output").string();
    fWritten = "a temporary file in " + shown(folder);
  }
  fDescriptor = makeScratch(AT_FDCWD, scratchPrefix(session.program, place), 0600, fScratch);
  if (fDescriptor < 0) {
    fScratch.clear();
    fail();
  }
  if (!beside) {
    unlink(fScratch.c_str());
    fScratch.clear();
  }
  removeOnSignal(fScratch);
}

OutputFile::~OutputFile() {
  if (fDescriptor >= 0) close(fDescriptor);
  if (!fScratch.empty()) unlink(fScratch.c_str());
  removeOnSignal({});
}

std::string OutputFile::path() const {
  return fScratch.empty() ? fmt::format("/dev/fd/{}", fDescriptor) : fScratch;
}

void OutputFile::commit() {
  if (fScratch.empty()) {
    copyToTarget();
  } else {
    replaceTarget();
  }
}

void OutputFile::copyToTarget() {
  fWritten = fName;
  const int out = fTarget.empty() ? STDOUT_FILENO : open(fTarget.c_str(), O_WRONLY | O_CLOEXEC);
  if (out < 0 || lseek(fDescriptor, 0, SEEK_SET) < 0) fail();
  std::array<char, 65536> block;
  try {
    for (;;) {
      const ssize_t size = ::read(fDescriptor, block.data(), block.size());
      if (size < 0) fail();
      if (size == 0) break;
      writeAll(out, block.data(), static_cast<std::size_t>(size));
    }
  } catch (const std::filesystem::filesystem_error& error) {
    errno = error.code().value();
    fail();
  }
  if (!fTarget.empty() && close(out) != 0) fail();
}

std::optional<struct stat> OutputFile::targetStatus() const {
  std::error_code error;
  const auto status = statusOf(fTarget, error);
  if (error) throw failure(error.message());
  return status;
}

bool OutputFile::isPlainFileOrAbsent() const {
  const auto status = targetStatus();
  return !status || S_ISREG(status->st_mode);
}

void OutputFile::replaceTarget() {
  const mode_t mode = modeInPlaceOf(targetStatus());
  if (fchmod(fDescriptor, mode) != 0 || fsync(fDescriptor) != 0) fail();
  if (rename(fScratch.c_str(), fTarget.c_str()) != 0) fail();
  fScratch.clear();
  removeOnSignal({});
  if (!syncFolderOf(fTarget)) fail();
}

void OutputFile::fail() const {
  if (errno == EPIPE && fTarget.empty()) throw ReaderGone();
  throw failure(systemReason());
}

Failure OutputFile::failure(const std::string& reason) const {
  return Failure(fmt::format("cannot write {}: {}", fWritten, reason));
}

}  // namespace tools
