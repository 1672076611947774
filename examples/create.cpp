// create FILE: makes a package of a type, with the type as its first entry, as readers that look at
// the first bytes of a file want it.

#include <cstdio>
#include <exception>
#include <ios>

#include <package/QCFPackage.h>

int main(int argc, char** argv) try {
  if (argc != 2) return 2;
  pkg::QCFPackageFactory factory;
  const auto package = factory.createConformingPackage(argv[1], "application/x-greeting", true,
                                                       nullptr, nullptr, nullptr);

  // In the update that is running now, one entry after the other goes straight into the file.
  const auto letter = package->getFile("letter/hello.txt", false)->open(std::ios::out, false);
  letter->exceptions(std::ios::badbit);  // a full disk must not go unnoticed
  *letter << "Hello, world.\n";
  letter->close();

  const auto picture = package->getFile("letter/dot.raw", false);
  picture->setCompressionMethod(pkg::CompressionStored);
  const auto pixels = picture->open(std::ios::out, false);
  pixels->exceptions(std::ios::badbit);
  pixels->write("\0\1\2\3", 4);
  pixels->close();

  package->setProperty(pkg::QCFPropertyPackageComment, "made by an example");
  package->endUpdate();  // writes the directory: only now it is a package
  package->close();
} catch (const std::exception& e) {
  std::fprintf(stderr, "create: %s\n", e.what());
  return 3;
}
