#pragma once

#include <functional>
#include <string>

#include "package/IXMLParser.h"

// Writes every event down, one a line, and lets a test interfere with the next.
class EventRecorder : public pkg::IXMLParser_EventHandler {
public:
  std::string log;
  // Called with each line before it is written; what it returns goes to the parser.
  std::function<int(const std::string&)> react = [](const std::string&) { return 0; };

  int startElement(const char* name, const char** attributes) override {
    std::string line = "<" + std::string(name);
    for (; attributes[0] != nullptr; attributes += 2)
      line += " " + std::string(attributes[0]) + "=" + attributes[1];
    return note(line);
  }
  int endElement(const char* name) override { return note("</" + std::string(name)); }
  int characterData(const char* data, int length) override {
    return note("text " + std::string(data, static_cast<std::size_t>(length)));
  }
  int processingInstruction(const char* target, const char* data, int length) override {
    return note("? " + std::string(target) + " " +
                std::string(data, static_cast<std::size_t>(length)));
  }
  int comment(const char* data, int length) override {
    return note("! " + std::string(data, static_cast<std::size_t>(length)));
  }

private:
  int note(const std::string& line) {
    const int answer = react(line);
    log += line + "\n";
    return answer;
  }
};
