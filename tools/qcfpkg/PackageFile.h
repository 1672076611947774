#pragma once

#include <optional>
#include <string>
#include <system_error>

#include <sys/stat.h>

#include "Tool.h"

// The file that a package lives in, for as long as a run changes it. No two runs of this program
// change a package at once, and a change appears complete or not at all: it is written to a scratch
// file beside the package, made durable, and renamed over it.
class PackageFile {
public:
  // For changing a package that exists; locks it. Clears what a killed run has left behind, with a
  // note. Raises tools::Failure, also where another run is changing the package.
  static PackageFile existing(const Tool& tool, const std::string& path);
  // For a package that does not exist or, with `overwrite`, is to be replaced. Clears as
  // existing().
  static PackageFile created(const Tool& tool, const std::string& path, bool overwrite);

  PackageFile(const PackageFile&) = delete;
  PackageFile& operator=(const PackageFile&) = delete;
  ~PackageFile();

  // As given, for messages.
  const std::string& name() const noexcept { return fName; }
  // Absolute, symbolic links resolved.
  const std::string& path() const noexcept { return fPath; }

  // A new, empty scratch file beside the package, in place of one made before. Its name.
  std::string newScratch();
  // Gives up the scratch file made before the current one, which was made from it.
  void dropFormerScratch();
  // The scratch file becomes the package, with the old one's mode and, where the system allows it,
  // owner. Raises tools::Failure, with the package as it was.
  void commit();
  // Makes a change in place durable.
  void syncInPlace();

private:
  PackageFile(const std::string& path, bool isNew, std::error_code error = {});
  PackageFile(const Tool& tool, const std::string& path);                  // existing()
  PackageFile(const Tool& tool, const std::string& path, bool overwrite);  // created()
  std::optional<struct stat> status() const;
  void lock();
  void adoptStatus(int descriptor) const;
  [[noreturn]] void fail(const std::string& reason) const;

  std::string fName;
  std::string fPath;
  std::string fProgram;
  std::string fScratch;
  std::string fFormerScratch;
  int fLock = -1;
  int fScratchLock = -1;
  bool fIsNew = false;
  bool fOverwrite = true;
};
