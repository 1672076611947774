// A properties document: read, changed, written and read again.

#include "package/expat/ExpatXMLParser.h"

#include "Input.h"
#include "unit/reading/Reading.h"

namespace {

constexpr char kDocument[] = "META-INF/pkgproperties.xml";
constexpr auto kNew = std::ios_base::in | std::ios_base::out | std::ios_base::trunc;

}  // namespace

void fuzz::run(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const bool changes = input.below(2) != 0;
  zipbytes::File file;
  reading::addStored(file, "a", "data");
  reading::addStored(file, kDocument, input.rest());
  pkg::ExpatXMLParser parser;
  reading::raisedBy([&] {
    reading::MemoryPackage package(file.bytes(), nullptr, reading::kIn | reading::kOut, &parser);
    const auto entry = package->getFile("a", true);
    entry->getProperty(pkg::QCFPropertyMacType);
    if (changes) package->getFile(kDocument, true)->remove();
    package->beginUpdate(std::string("b.pkg"), kNew);
    if (changes) entry->setProperty(pkg::QCFPropertyDateTime, "now & then");
    package->endUpdate();
    package->getFile("a", true)->getProperty(pkg::QCFPropertyDateTime);
  });
}
