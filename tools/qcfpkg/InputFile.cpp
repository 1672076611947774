#include "InputFile.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "common/Failure.h"

namespace ziplayout {

InputFile::InputFile(const std::string& path)
    : fPath(path), fDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  const auto refuse = [&](const std::string& reason) {
    if (fDescriptor >= 0) close(fDescriptor);
    throw tools::Failure(fmt::format("cannot open {}: {}", tools::shown(path), reason));
  };
  if (fDescriptor < 0 && path == "-") refuse("a package is a file, not standard input or output");
  struct stat status {};
  if (fDescriptor < 0 || fstat(fDescriptor, &status) != 0) refuse(tools::systemReason());
  if (S_ISDIR(status.st_mode)) refuse("it is a folder");
  if (!S_ISREG(status.st_mode)) refuse("it is not a regular file");
  fSize = static_cast<std::uint64_t>(status.st_size);
}

InputFile::~InputFile() {
  close(fDescriptor);
}

std::string InputFile::read(std::uint64_t offset, std::size_t size) const {
  if (offset >= fSize) return {};
  std::string bytes(static_cast<std::size_t>(std::min<std::uint64_t>(size, fSize - offset)), '\0');
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = pread(fDescriptor, bytes.data() + done, bytes.size() - done,
                                static_cast<off_t>(offset + done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      throw tools::Failure(
          fmt::format("cannot read {}: {}", tools::shown(fPath), tools::systemReason()));
    }
    if (count == 0) break;
    done += static_cast<std::size_t>(count);
  }
  bytes.resize(done);
  return bytes;
}

}  // namespace ziplayout
