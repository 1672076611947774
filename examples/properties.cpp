// properties FILE ENTRY [VALUE]: shows the properties of an entry, or sets its date to VALUE.

#include <cstdio>
#include <exception>
#include <filesystem>
#include <ios>
#include <string>

#include <package/QCFPackage.h>
#include <package/expat/ExpatXMLParser.h>

namespace {

constexpr char kDocument[] = "META-INF/pkgproperties.xml";

struct Property {
  pkg::QCFPropertyName name;
  const char* label;
};

constexpr Property kShown[] = {
    {pkg::QCFPropertyDateTime, "date"},
    {pkg::QCFPropertyMacType, "type"},
    {pkg::QCFPropertyMacCreator, "creator"},
    {pkg::QCFPropertyZipDate, "ZIP date"},
};

void show(pkg::IPkgFile<>& file) {
  for (const Property& property : kShown) {
    const std::string value = file.getProperty(property.name);
    if (!value.empty()) std::printf("%s: %s\n", property.label, value.c_str());
  }
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 3 && argc != 4) return 2;
  const std::string path = argv[1];
  const std::string next = path + ".new";
  pkg::ExpatXMLParser parser;  // outlives the package
  pkg::QCFPackageFactory factory;
  const auto package =
      factory.openPackage(path, std::ios::in | std::ios::out, nullptr, nullptr, &parser);
  const auto file = package->getFile(argv[2], true);
  if (argc == 3) {
    show(*file);
    // What could not be read of the properties, nobody raises: the parser knows.
    if (*parser.getErrorText() != '\0') std::fprintf(stderr, "%s\n", parser.getErrorText());
    return 0;
  }
  // Reading one property takes the whole document into memory, so that the others stay. The update
  // writes it anew: removed before, it is not copied first and then left behind as dead bytes.
  file->getProperty(pkg::QCFPropertyDateTime);
  if (package->entryExists(kDocument) != pkg::PkgEntryNone) {
    package->getFile(kDocument, true)->remove();
  }
  package->beginUpdate(next, std::ios::in | std::ios::out | std::ios::trunc);
  file->setProperty(pkg::QCFPropertyDateTime, argv[3]);
  package->endUpdate();
  package->close();
  std::filesystem::rename(next, path);
} catch (const std::exception& e) {
  std::fprintf(stderr, "properties: %s\n", e.what());
  return 3;
}
