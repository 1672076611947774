#pragma once

#include <string>
#include <utility>

#include "crash/Disk.h"
#include "support/FileSystems.h"

namespace crash {

// Writes down whatever changes a named file. Temporary files are nobody's after a crash.
class JournalFileSystem : public support::FileSystemWrapper {
public:
  using FileSystemWrapper::FileSystemWrapper;

  const Journal& journal() const { return fJournal; }

  File openFile(const FileName& name, openmode mode) override {
    File file = FileSystemWrapper::openFile(name, mode);
    const bool empties = (mode & std::ios_base::out) != 0 &&
                         ((mode & std::ios_base::in) == 0 || (mode & std::ios_base::trunc) != 0);
    if (empties) note({Operation::Kind::Empty, name->getName()});
    return file;
  }

protected:
  void write(InnerFile& file, const void* buffer, int size) override {
    const auto offset = static_cast<std::size_t>(file.tell());
    file.write(buffer, size);
    note({Operation::Kind::Write,
          file.getName()->getName(),
          offset,
          {static_cast<const char*>(buffer), static_cast<std::size_t>(size)}});
  }
  void truncate(InnerFile& file, long long size) override {
    file.truncate(size);
    note({Operation::Kind::Resize, file.getName()->getName(), static_cast<std::size_t>(size)});
  }

private:
  void note(Operation operation) {
    if (operation.file.rfind("temporary/", 0) != 0) fJournal.push_back(std::move(operation));
  }

  Journal fJournal;
};

}  // namespace crash
