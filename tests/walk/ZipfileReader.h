#pragma once

#include <cstdio>
#include <string>

#include "walk/PackageModel.h"

namespace walk {

// One python3 for the whole run: a path in, what its zipfile finds out. The directory size, which
// may count records that are gone, is told as recorded and then put right, since zipfile trusts it.
class ZipfileReader {
public:
  ZipfileReader();
  ~ZipfileReader();
  std::string describe(const std::string& path);

private:
  std::FILE* fRequests = nullptr;
  std::FILE* fAnswers = nullptr;
};

// The same of what the model says of a file.
std::string describe(const PackageModel::Saved& saved);

}  // namespace walk
