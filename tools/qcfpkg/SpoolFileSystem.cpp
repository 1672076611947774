#include "SpoolFileSystem.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

#include <boost/make_shared.hpp>

namespace {

using std::ios_base;

class CountingFile final : public pkg::BasePkgFSFile<> {
public:
  CountingFile(pkg::IPkgFileSystem<>* fileSystem, const FileName& name, ios_base::openmode mode,
               SpoolFileSystem::Wrote wrote)
      : BasePkgFSFile(fileSystem, name, mode), fWrote(std::move(wrote)) {}

  void write(const void* buffer, int size) override {
    BasePkgFSFile::write(buffer, size);
    if (fWrote) fWrote(size);
  }

private:
  SpoolFileSystem::Wrote fWrote;
};

}  // namespace

SpoolFileSystem::~SpoolFileSystem() {
  for (const auto& [name, descriptor] : fSpools)
    ::close(descriptor);
}

SpoolFileSystem::File SpoolFileSystem::openFile(const FileName& name, ios_base::openmode mode) {
  const bool writes = (mode & ios_base::out) != 0;
  const bool keeps = (mode & ios_base::in) != 0 && (mode & ios_base::trunc) == 0;
  auto file = boost::make_shared<CountingFile>(this, name, mode, fWrote);
  std::FILE* const stream = std::fopen(name->getName().c_str(), !writes ? "rbe"
                                                                : keeps ? "r+be"
                                                                        : "w+be");
  if (stream == nullptr) pkg::throwSystemError(errno);
  file->adopt(stream);
  return file;
}

SpoolFileSystem::File SpoolFileSystem::createTempFile() {
  std::FILE* const stream = std::tmpfile();
  if (stream == nullptr) pkg::throwSystemError(errno);
  const FileName name = getFSFileName("spool " + std::to_string(++fCount));
  const auto mode = ios_base::in | ios_base::out | ios_base::trunc;
  auto file = boost::make_shared<CountingFile>(this, name, mode, Wrote());
  file->adopt(stream);
  const int kept = fcntl(fileno(stream), F_DUPFD_CLOEXEC, 0);
  if (kept < 0) pkg::throwSystemError(errno);
  fSpools[name->getName()] = kept;
  return file;
}

SpoolFileSystem::File SpoolFileSystem::reopenTempFileByName(const FileName& name,
                                                            ios_base::openmode mode) {
  const auto spool = fSpools.find(name->getName());
  if (spool == fSpools.end()) pkg::throwSystemError(ENOENT);
  const int descriptor = fcntl(spool->second, F_DUPFD_CLOEXEC, 0);
  if (descriptor < 0) pkg::throwSystemError(errno);
  std::FILE* const stream = fdopen(descriptor, "r+b");
  if (stream == nullptr) {
    const int code = errno;
    ::close(descriptor);
    pkg::throwSystemError(code);
  }
  auto file = boost::make_shared<CountingFile>(this, name, mode, Wrote());
  file->adopt(stream);
  file->seek(0, SEEK_SET);  // the position is the spool's own
  return file;
}

void SpoolFileSystem::deleteTempFileByName(const FileName& name) {
  const auto spool = fSpools.find(name->getName());
  if (spool == fSpools.end()) return;
  ::close(spool->second);
  fSpools.erase(spool);
}
