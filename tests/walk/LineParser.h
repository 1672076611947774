#pragma once

#include <istream>
#include <iterator>

#include "package/QCFPackage.h"

#include "walk/PackageModel.h"

namespace walk {

// Reads the library's own documents, which is all that stands in the packages of this test.
class LineParser : public pkg::IXMLParser {
public:
  void setEventHandler(pkg::IXMLParser_EventHandler* handler) override { fHandler = handler; }
  void parse(std::istream& in) override {
    const Bytes text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const char* none[] = {nullptr};
    fHandler->startElement("pkgProperties", none);
    fHandler->startElement("entries", none);
    for (const auto& [path, value] : parseDocument(text)) {
      const char* ofEntry[] = {"path", path.c_str(), nullptr};
      const char* ofProp[] = {"key", "datetime", nullptr};
      fHandler->startElement("entry", ofEntry);
      fHandler->startElement("prop", ofProp);
      fHandler->characterData(value.data(), static_cast<int>(value.size()));
      fHandler->endElement("prop");
      fHandler->endElement("entry");
    }
    fHandler->endElement("entries");
    fHandler->endElement("pkgProperties");
  }
  void parseChunk(const char*, int, bool) override {}
  const char* getErrorText() override { return ""; }
  void finish() override { fHandler = nullptr; }

private:
  pkg::IXMLParser_EventHandler* fHandler = nullptr;
};

}  // namespace walk
