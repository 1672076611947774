#pragma once

#include <functional>
#include <istream>
#include <string>

#include "package/IXMLParser.h"

namespace support {

// A parser whose documents are told by the test: parse() runs `script` on the handler, whatever the
// stream holds.
class FakeParser : public pkg::IXMLParser {
public:
  std::function<void(pkg::IXMLParser_EventHandler&)> script;
  int parses = 0;

  // A script of one property of one entry.
  void tellOf(const std::string& path, const std::string& key, const std::string& value) {
    script = [=](pkg::IXMLParser_EventHandler& handler) {
      const char* none[] = {nullptr};
      const char* entry[] = {"path", path.c_str(), nullptr};
      const char* prop[] = {"key", key.c_str(), nullptr};
      handler.startElement("pkgProperties", none);
      handler.startElement("entries", none);
      handler.startElement("entry", entry);
      handler.startElement("prop", prop);
      handler.characterData(value.data(), static_cast<int>(value.size()));
      for (const char* name : {"prop", "entry", "entries", "pkgProperties"})
        handler.endElement(name);
    };
  }

  void setEventHandler(pkg::IXMLParser_EventHandler* handler) override { fHandler = handler; }
  void parse(std::istream&) override {
    ++parses;
    if (script) script(*fHandler);
  }
  void parseChunk(const char*, int, bool) override {}
  const char* getErrorText() override { return ""; }
  void finish() override { fHandler = nullptr; }

private:
  pkg::IXMLParser_EventHandler* fHandler = nullptr;
};

}  // namespace support
