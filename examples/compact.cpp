// compact FILE [ENTRY...]: removes entries from a package and leaves no gap where they were.

#include <cstdio>
#include <exception>
#include <filesystem>
#include <ios>
#include <string>

#include <package/QCFPackage.h>

int main(int argc, char** argv) try {
  if (argc < 2) return 2;
  const std::string path = argv[1];
  const std::string next = path + ".new";
  pkg::QCFPackageFactory factory;
  const auto package =
      factory.openPackage(path, std::ios::in | std::ios::out, nullptr, nullptr, nullptr);
  const auto before = std::filesystem::file_size(path);
  for (int i = 2; i < argc; ++i)
    package->getFile(argv[i], true)->remove();
  // What is left is copied as it lies there, compressed bytes and all.
  package->saveAs(next, std::ios::in | std::ios::out | std::ios::trunc);
  package->close();
  std::filesystem::rename(next, path);
  std::printf("%ju bytes less\n",
              static_cast<std::uintmax_t>(before - std::filesystem::file_size(path)));
} catch (const std::exception& e) {
  std::fprintf(stderr, "compact: %s\n", e.what());
  return 3;
}
