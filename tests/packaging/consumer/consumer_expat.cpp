// A client of the expat adapter: has it parse a small document.

#include <cstdio>
#include <sstream>

#include <package/expat/ExpatXMLParser.h>

namespace {

class ElementCounter : public pkg::IXMLParser_EventHandler {
public:
  int startElement(const char*, const char**) override {
    ++elements;
    return 0;
  }
  int endElement(const char*) override { return 0; }
  int characterData(const char*, int) override { return 0; }
  int processingInstruction(const char*, const char*, int) override { return 0; }
  int comment(const char*, int) override { return 0; }
  int elements = 0;
};

}  // namespace

int main() {
  ElementCounter counter;
  std::istringstream document("<house><room/><room>text</room></house>");
  pkg::ExpatXMLParser parser;
  parser.setEventHandler(&counter);
  parser.parse(document);
  parser.finish();
  std::printf("%d elements\n", counter.elements);
}
