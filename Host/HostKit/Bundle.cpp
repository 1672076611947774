#include "HostKit/Bundle.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "HostKit/Module.h"
#include "HostKit/Selectors.h"

namespace hostkit {
namespace {

// An importer that never ends its list is cut off here.
constexpr int kMostFormats = 256;

template <std::size_t Size>
std::string textOf(const char (&field)[Size]) {
  return std::string(field, strnlen(field, Size));
}

std::string fourCharactersOf(std::int32_t code) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8)
    text.push_back(static_cast<char>(code >> shift));
  return text;
}

std::vector<std::string> extensionsOf(const imIndFormatRec& record) {
  std::vector<std::string> extensions;
  std::string_view rest(record.extensions, sizeof(record.extensions));
  while (!rest.empty() && rest.front() != '\0') {
    const auto length = std::min(rest.find('\0'), rest.size());
    extensions.emplace_back(rest.substr(0, length));
    rest.remove_prefix(std::min(length + 1, rest.size()));
  }
  return extensions;
}

}  // namespace

Bundle::Bundle(const std::filesystem::path& folder)
    : fModule(std::make_shared<const Module>(folder)) {}

std::int32_t Bundle::call(int selector, void* param1, void* param2) const {
  return fModule->call(selector, param1, param2);
}

std::vector<Format> Bundle::formats() const {
  std::vector<Format> formats;
  for (std::intptr_t index = 0; index < kMostFormats; ++index) {
    imIndFormatRec record{};
    const auto result = call(SelectorGetIndFormat, reinterpret_cast<void*>(index), &record);
    if (result == ResultBadFormatIndex) break;
    if (result != ResultSuccess) throw Error("the importer does not tell its formats", result);
    formats.push_back({fourCharactersOf(record.fileType), static_cast<std::uint32_t>(record.flags),
                       textOf(record.name), textOf(record.shortName), extensionsOf(record)});
  }
  return formats;
}

}  // namespace hostkit
