// replace FILE ENTRY TEXT: gives an entry of a package a new content. The file is exchanged for a
// new one when that is complete, never changed in between.

#include <cstdio>
#include <exception>
#include <filesystem>
#include <ios>
#include <string>

#include <package/QCFPackage.h>

namespace {

void replace(const std::string& path, const std::string& entry, const std::string& text) {
  const std::string next = path + ".new";
  pkg::QCFPackageFactory factory;
  const auto package =
      factory.openPackage(path, std::ios::in | std::ios::out, nullptr, nullptr, nullptr);

  // Removed before the update begins and written inside it, the entry goes out once. Written before
  // the update, it would go out a second time, from its old data.
  const auto file = package->getFile(entry, true);
  const auto method = file->getCompressionMethod();
  file->remove();
  package->beginUpdate(next, std::ios::in | std::ios::out | std::ios::trunc);
  file->setCompressionMethod(method);
  const auto stream = file->open(std::ios::out, false);
  stream->exceptions(std::ios::badbit);
  *stream << text;
  stream->close();
  package->endUpdate();
  package->close();
  std::filesystem::rename(next, path);
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 4) return 2;
  replace(argv[1], argv[2], argv[3]);
} catch (const std::exception& e) {
  std::fprintf(stderr, "replace: %s\n", e.what());
  return 3;
}
