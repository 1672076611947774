#include "common/Leftovers.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <random>
#include <string_view>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "common/Failure.h"
#include "common/FileStatus.h"

namespace tools {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kRandomLetters = 6;
constexpr std::string_view kLetters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

// A run that lives holds the lock of its scratch file. Returns false where another one does.
bool lock(int descriptor) {
  // Where files cannot be locked, nothing is guarded.
  return flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

// Another run may take a file for a leftover before it is locked, and then it has no name any more.
bool hold(int descriptor) {
  struct stat status {};
  return lock(descriptor) && (fstat(descriptor, &status) != 0 || status.st_nlink > 0);
}

bool isScratchName(const std::string& name, const std::string& prefix) {
  return name.size() == prefix.size() + kRandomLetters &&
         name.compare(0, prefix.size(), prefix) == 0 &&
         name.find_first_not_of(kLetters, prefix.size()) == std::string::npos;
}

std::vector<std::string> scratchNames(int folder, const std::string& prefix) {
  std::vector<std::string> names;
  const int copy = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  DIR* const list = copy < 0 ? nullptr : fdopendir(copy);
  if (list == nullptr) return names;
  while (const dirent* const item = readdir(list)) {
    if (isScratchName(item->d_name, prefix)) names.emplace_back(item->d_name);
  }
  closedir(list);
  return names;
}

// `output` tells the output's own file; null for none.
void clearAll(const Session& session, int folder, const std::string& shownFolder,
              const std::string& prefix, const struct stat* output) {
  for (const std::string& name : scratchNames(folder, prefix)) {
    struct stat status {};
    const bool isFile =
        fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode);
    if (!isFile) continue;
    // A run that was killed between naming its output and removing the scratch name.
    const bool isOutput =
        output != nullptr && status.st_ino == output->st_ino && status.st_dev == output->st_dev;
    // The lock is kept until the name is gone.
    const int file = openat(folder, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (isOutput || file < 0 || lock(file)) {
      const std::string path = shown((fs::path(shownFolder) / name).string());
      if (unlinkat(folder, name.c_str(), 0) == 0) {
        session.note(fmt::format("removed {}, which an interrupted run had left", path));
      } else if (errno != ENOENT) {  // its run has finished since
        session.note(fmt::format("an interrupted run has left {}: {}", path, systemReason()));
      }
    }
    if (file >= 0) close(file);
  }
}

// A folder takes names of 255 bytes: of a long one, this much serves.
std::string shortened(const std::string& name) {
  constexpr std::size_t kMost = 200;
  std::size_t size = std::min(kMost, name.size());
  const auto isInsideCharacter = [&] {
    return size < name.size() && (static_cast<unsigned char>(name[size]) & 0xC0) == 0x80;
  };
  while (size > 0 && isInsideCharacter())
    --size;
  return name.substr(0, size);
}

// Up to the letters that are picked.
std::string scratchName(const std::string& program, const std::string& output) {
  return "." + shortened(fs::path(output).filename().string()) + "." + program + "-";
}

}  // namespace

std::string resolvedPath(const std::string& path, std::error_code& error) {
  constexpr int kMostLinks = 40;  // as many as Linux follows
  if (path.empty()) return path;
  // A pipe of this process has no name behind /dev/fd/1, and what is no file is not replaced.
  const auto found = statusOf(path, error);
  if (error || (found && !S_ISREG(found->st_mode))) return path;
  fs::path named = path;
  for (int link = 0; link <= kMostLinks; ++link) {
    const fs::file_status status = fs::symlink_status(named, error);
    if (status.type() == fs::file_type::not_found) error.clear();
    if (error) return path;
    if (!fs::is_symlink(status)) {
      return (named.has_parent_path() ? named : fs::path(".") / named).string();
    }
    const fs::path target = fs::read_symlink(named, error);
    if (error) return path;
    named = named.parent_path() / target;
  }
  error = std::make_error_code(std::errc::too_many_symbolic_link_levels);
  return path;
}

std::string scratchPrefix(const std::string& program, const std::string& output) {
  return (fs::path(output).parent_path() / scratchName(program, output)).string();
}

int makeScratch(int folder, const std::string& prefix, mode_t mode, std::string& name) {
  constexpr int kAttempts = 100;
  static std::random_device random;  // to set one up takes longer than all else here
  std::uniform_int_distribution<std::size_t> pick(0, kLetters.size() - 1);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    name = prefix;
    for (std::size_t i = 0; i < kRandomLetters; ++i)
      name.push_back(kLetters[pick(random)]);
    const int descriptor =
        openat(folder, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (descriptor < 0) {
      if (errno == EEXIST) continue;
      return -1;
    }
    if (hold(descriptor)) return descriptor;
    close(descriptor);
  }
  errno = EEXIST;
  return -1;
}

void clearLeftovers(const Session& session, const std::string& output) {
  const std::string parent = fs::path(output).parent_path().string();
  const int folder = open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return;  // what cannot be listed cannot be cleared
  struct stat status {};
  const bool exists = stat(output.c_str(), &status) == 0;
  clearAll(session, folder, parent, scratchName(session.program, output),
           exists ? &status : nullptr);
  close(folder);
}

void clearLeftovers(const Session& session, int folder, const std::string& shownFolder,
                    const std::string& prefix) {
  clearAll(session, folder, shownFolder, prefix, nullptr);
}

}  // namespace tools
