#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Inputs.h"
#include "PackageFile.h"
#include "Properties.h"
#include "Tool.h"
#include "ZipLayout.h"

// A change of a package, all of it in one save.
struct Change {
  // Names as they stand in the package: all entries of each, and what the properties document says
  // of it.
  std::vector<std::string> removed;
  std::vector<Input> added;  // replace entries of the same name
  bool stored = false;       // the added ones, instead of deflated
  std::optional<std::string> type;
  std::optional<std::string> comment;
  std::vector<PropertySetting> properties;
  bool dropsLeading = false;  // the bytes in front of the first entry, which else are refused
  bool inPlace = false;       // append to the package file: quick, and not safe against a power cut
};

// Makes a new package of that type in `file`. Raises tools::Failure, with nothing left behind.
void createPackage(const Tool& tool, PackageFile& file, const std::string& type,
                   const std::vector<Input>& inputs, bool stored);

// Changes a package. `file` holds it, and `old` was read while it did. Raises tools::Failure, with
// the package as it was; a change in place tells where it could not put that back.
void changePackage(const Tool& tool, PackageFile& file, const ziplayout::Layout& old,
                   const Change& change);
