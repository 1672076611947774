#include "InPlace.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

#include "ZipLayout.h"

namespace {

bool writeAt(int descriptor, const std::string& bytes, std::uint64_t offset) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = pwrite(descriptor, bytes.data() + done, bytes.size() - done,
                                 static_cast<off_t>(offset + done));
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) done += static_cast<std::size_t>(count);
  }
  return true;
}

std::string tailOf(const std::string& path, std::uint64_t offset) {
  const ziplayout::InputFile file(path);
  return file.read(offset, static_cast<std::size_t>(file.size() - offset));
}

}  // namespace

KeptDirectory::KeptDirectory(const std::string& path, std::uint64_t directoryOffset)
    : fPath(path), fOffset(directoryOffset), fBytes(tailOf(path, directoryOffset)) {}

// Written before the file is cut: on a full disk, what the change has appended is the room for it.
bool KeptDirectory::putBack() const {
  const int descriptor = open(fPath.c_str(), O_WRONLY | O_CLOEXEC);
  if (descriptor < 0) return false;
  const bool done = writeAt(descriptor, fBytes, fOffset) &&
                    ftruncate(descriptor, static_cast<off_t>(fOffset + fBytes.size())) == 0 &&
                    fsync(descriptor) == 0;
  const int reason = errno;
  close(descriptor);
  errno = reason;
  return done;
}

HeldSignals::HeldSignals() {
  sigemptyset(&fHeld);
  // Beyond the limit of a file's size, a signal comes with the failed write.
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGXFSZ}) {
    struct sigaction action {};
    const bool isIgnored =  // as under nohup: such a one would wait as well
        sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
    if (!isIgnored) sigaddset(&fHeld, signal);
  }
  pthread_sigmask(SIG_BLOCK, &fHeld, &fBefore);
}

HeldSignals::~HeldSignals() {
  pthread_sigmask(SIG_SETMASK, &fBefore, nullptr);
}

bool HeldSignals::isOneWaiting() const {
  sigset_t waiting;
  if (sigpending(&waiting) != 0) return false;
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGXFSZ}) {
    if (sigismember(&waiting, signal) == 1 && sigismember(&fHeld, signal) == 1) return true;
  }
  return false;
}
