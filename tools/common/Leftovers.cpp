#include "common/Leftovers.h"

#include <cerrno>
#include <filesystem>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <fmt/format.h>

#include "common/Failure.h"

namespace tools {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kRandomLetters = 6;

// A run that lives holds the lock of its scratch file.
bool isHeld(const fs::path& scratch) {
  const int descriptor = open(scratch.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (descriptor < 0) return false;
  const bool locked = flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  close(descriptor);
  return locked;
}

void clear(const Session& session, const fs::path& scratch) {
  if (unlink(scratch.c_str()) == 0) {
    session.note(
        fmt::format("removed {}, which an interrupted run had left", shown(scratch.string())));
  } else {
    session.note(
        fmt::format("an interrupted run has left {}: {}", shown(scratch.string()), systemReason()));
  }
}

}  // namespace

std::string scratchPrefix(const std::string& program, const std::string& output) {
  return "." + fs::path(output).filename().string() + "." + program + "-";
}

std::string scratchTemplate(const std::string& program, const std::string& output) {
  const std::string name = scratchPrefix(program, output) + std::string(kRandomLetters, 'X');
  return (fs::path(output).parent_path() / name).string();
}

void holdScratch(int descriptor) {
  fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  flock(descriptor, LOCK_EX | LOCK_NB);  // where files cannot be locked, nothing is guarded
}

void clearLeftovers(const Session& session, const std::string& output) {
  const std::string prefix = scratchPrefix(session.program, output);
  std::error_code error;
  for (fs::directory_iterator item(fs::path(output).parent_path(), error), end;
       !error && item != end; item.increment(error)) {
    const std::string name = item->path().filename().string();
    const bool ours = name.size() == prefix.size() + kRandomLetters &&
                      name.compare(0, prefix.size(), prefix) == 0;
    std::error_code ignored;
    if (!ours || !item->is_regular_file(ignored) || item->is_symlink(ignored)) continue;
    // A run that was killed between naming its output and removing the scratch name.
    const bool isOutput = fs::equivalent(item->path(), output, ignored);
    if (isOutput || !isHeld(item->path())) clear(session, item->path());
  }
}

}  // namespace tools
