#include "JSONOutput.h"

#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

std::string JSONOutput::newLine() const {
  return "\n" + std::string(2 * fClosing.size(), ' ');
}

void JSONOutput::place() {
  if (std::exchange(fHasKey, false) || fClosing.empty()) return;
  fmt::print("{}{}", fIsFirst ? "" : ",", newLine());
  fIsFirst = false;
}

void JSONOutput::begin(char opening, char closing) {
  place();
  fmt::print("{}", opening);
  fClosing.push_back(closing);
  fIsFirst = true;
}

void JSONOutput::end() {
  const char closing = fClosing.back();
  fClosing.pop_back();
  fmt::print("{}{}{}", std::exchange(fIsFirst, false) ? "" : newLine(), closing,
             fClosing.empty() ? "\n" : "");
}

void JSONOutput::key(const std::string& name) {
  place();
  fmt::print("{}: ", nlohmann::ordered_json(name).dump());
  fHasKey = true;
}

// No text has a line end of its own: JSON escapes it.
void JSONOutput::value(const nlohmann::ordered_json& value) {
  place();
  std::string text = value.dump(2);
  const std::string indented = newLine();
  for (auto at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 1))
    text.replace(at, 1, indented);
  fmt::print("{}", text);
}
