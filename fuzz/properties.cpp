// A properties document: read, changed, written and read again. What was set and what was there
// before come back, unless texts of the document mean something in XML: they are written as they
// stand.

#include <array>
#include <cstdlib>

#include "package/expat/ExpatXMLParser.h"

#include "Input.h"
#include "unit/reading/Reading.h"

namespace {

constexpr char kDocument[] = "META-INF/pkgproperties.xml";
constexpr auto kNew = std::ios_base::in | std::ios_base::out | std::ios_base::trunc;

using Values = std::array<std::string, 3>;

void require(bool holds) {
  if (!holds) std::abort();
}

Values read(pkg::IPackage<>& package) {
  const auto entry = package.getFile("a", true);
  return {entry->getProperty(pkg::QCFPropertyDateTime), entry->getProperty(pkg::QCFPropertyMacType),
          entry->getProperty(pkg::QCFPropertyMacCreator)};
}

// Whether no text in it can be or have a character that must be escaped: there are no references,
// no sections, and no paths in quotes that may hold the others.
bool isPlain(const std::string& document) {
  return document.find_first_of("&['") == std::string::npos;
}

// Returns what the entry should have then.
Values change(reading::MemoryPackage& package, const std::string& value) {
  Values expected = read(*package);
  // The recipe for replacing it; without a change it is written a second time.
  if (!value.empty()) package->getFile(kDocument, true)->remove();
  package->beginUpdate(std::string("b.pkg"), kNew);
  if (!value.empty()) {
    package->getFile("a", true)->setProperty(pkg::QCFPropertyDateTime, value);
    expected[0] = value;
  }
  package->endUpdate();
  require(read(*package) == expected);
  return expected;
}

}  // namespace

void fuzz::run(const std::uint8_t* data, std::size_t size) {
  constexpr const char* kValues[] = {"", "d\xC3\xA9j\xC3\xA0 vu > \"now\"", "now & then"};
  fuzz::Input input(data, size);
  const unsigned number = input.below(std::size(kValues));
  const std::string document = input.rest();
  zipbytes::File file;
  reading::addStored(file, "a", "data");
  reading::addStored(file, kDocument, document);
  pkg::ExpatXMLParser parser;
  reading::raisedBy([&] {
    reading::MemoryPackage package(file.bytes(), nullptr, reading::kIn | reading::kOut, &parser);
    const Values expected = change(package, kValues[number]);
    const auto again = pkg::QCFPackageFactory().openPackage("b.pkg", reading::kIn, &package.files,
                                                            nullptr, &parser);
    if (number == 2 || !isPlain(document)) {
      read(*again);
    } else {
      const auto raised = reading::raisedBy([&] { require(read(*again) == expected); });
      require(raised.code == -1);
    }
  });
}
