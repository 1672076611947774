#pragma once

#include <functional>
#include <map>
#include <string>

#include "package/QCFPackage.h"

// The library's files, with two things more: whoever waits is told how much was written, and
// temporary files have no name on disk, so that none is left behind whatever ends the program.
class SpoolFileSystem final : public pkg::BasePkgFileSystem<> {
public:
  using Wrote = std::function<void(int size)>;

  explicit SpoolFileSystem(Wrote wrote) : fWrote(std::move(wrote)) {}
  ~SpoolFileSystem() override;

  File openFile(const FileName& name, std::ios_base::openmode mode) override;
  File createTempFile() override;
  File reopenTempFileByName(const FileName& name, std::ios_base::openmode mode) override;
  void deleteTempFileByName(const FileName& name) override;

private:
  Wrote fWrote;
  std::map<std::string, int> fSpools;  // by name: descriptors of files that are unlinked already
  int fCount = 0;
};
