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
  std::vector<std::string> removed;  // names as they stand in the package
  std::vector<Input> added;          // replace entries of the same name
  bool stored = false;               // the added ones, instead of deflated
  std::optional<std::string> type;
  std::optional<std::string> comment;
  std::vector<PropertySetting> properties;
  bool inPlace = false;  // append to the package file: quick, and not safe against a power cut
};

// Makes a new package of that type in `file`. Raises tools::Failure, with nothing left behind.
void createPackage(const Tool& tool, PackageFile& file, const std::string& type,
                   const std::vector<Input>& inputs, bool stored);

// Changes a package. `file` holds it, and `old` was read while it did. Raises tools::Failure, with
// the package as it was unless the change is in place.
void changePackage(const Tool& tool, PackageFile& file, const ziplayout::Layout& old,
                   const Change& change);
