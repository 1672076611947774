#include <iostream>
#include <string>

#include "package/detail/PkgFileSys.h"
#include "package/source/getTemporaryItemsDir.h"

// Tells, a line each: what the glue answers, and what comes of a temporary file of the library.
int main() {
  std::string directory = "as it was";
  pkg::getTemporaryItemsDir(directory);
  std::cout << directory << '\n';
  try {
    const auto file = pkg::BasePkgFileSystem<>::getInstance()->createTempFile();
    std::cout << file->getName()->getName() << '\n';
  } catch (pkg::PackageException<>& exception) {
    std::cout << "error " << exception.getErrorCode() << '\n';
  }
}
