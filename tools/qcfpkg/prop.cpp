#include <algorithm>
#include <array>
#include <map>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "EntryData.h"
#include "JSONOutput.h"
#include "PackageUpdate.h"
#include "Properties.h"
#include "Texts.h"
#include "Tool.h"

namespace {

struct Options {
  std::string verb = "tell";
  std::string package;
  std::string entry;
  std::string name;
  std::string value;
  bool asJSON = false;
};

// "modified" stands for date and time of the record, which are set together.
constexpr std::array<const char*, 5> kNames{"modified", "type-creator", "datetime", "mac-type",
                                            "mac-creator"};

[[noreturn]] void refuse(const Options& options, const std::string& reason,
                         tools::ExitCode code = tools::ExitFailed) {
  throw tools::Failure(fmt::format("cannot {} properties of {}: {}", options.verb,
                                   tools::shown(options.package), reason),
                       code);
}

std::string documentKey(const std::string& name) {
  std::string key = name;
  std::replace(key.begin(), key.end(), '-', '_');
  return key;
}

PropertyMap documentOf(const ziplayout::Layout& layout, const Options& options) {
  const ziplayout::Entry* const entry = layout.find(kPropertiesName);
  if (entry == nullptr) return {};
  try {
    const PropertiesText text =
        readProperties(ziplayout::readEntry(layout, *entry, std::uint64_t{1} << 26));
    if (!text.fault.empty()) refuse(options, "the properties document is damaged: " + text.fault);
    return text.properties;
  } catch (const ziplayout::DataError& error) {
    refuse(options, std::string("the properties document cannot be read: ") + error.what());
  }
}

std::string typeCreatorOf(const ziplayout::Header& header) {
  const auto extra = ziplayout::parseExtra(header.extra);
  const ziplayout::ExtraBlock* const block = extra.find(ziplayout::kExtraTypeCreator);
  std::string text;
  if (block == nullptr || block->body.size() < 12 || block->body.compare(0, 4, "ZPIT") != 0) {
    return text;
  }
  for (const char c : block->body.substr(4, 8)) {
    text += fmt::format("{:02X}", static_cast<unsigned char>(c));
  }
  return text;
}

std::string valueOf(const ziplayout::Entry& entry, const PropertyMap& document,
                    const std::string& name) {
  if (name == "modified") return dateText(entry.central.date, entry.central.time);
  if (name == "type-creator") return typeCreatorOf(entry.central);
  const auto ofEntry = document.find(entry.central.name);
  if (ofEntry == document.end()) return {};
  const auto value = ofEntry->second.find(documentKey(name));
  return value == ofEntry->second.end() ? std::string() : value->second;
}

const ziplayout::Entry& entryOf(const ziplayout::Layout& layout, const Options& options) {
  const ziplayout::Entry* const entry = layout.find(options.entry);
  if (entry == nullptr) refuse(options, fmt::format("no entry {}", tools::shown(options.entry)));
  return *entry;
}

void get(const Options& options) {
  const ziplayout::Layout layout(options.package);
  layout.requireWhole();
  const ziplayout::Entry& entry = entryOf(layout, options);
  fmt::print("{}\n", valueOf(entry, documentOf(layout, options), options.name));
}

void list(const Options& options) {
  const ziplayout::Layout layout(options.package);
  layout.requireWhole();
  if (!options.entry.empty()) entryOf(layout, options);
  const PropertyMap document = documentOf(layout, options);
  // What entries of one name have stands together, where the first of them that has any stands.
  std::map<std::string, std::size_t> places;
  std::vector<std::pair<std::string, nlohmann::ordered_json>> all;
  for (const ziplayout::Entry& entry : layout.entries()) {
    if (!options.entry.empty() && entry.central.name != options.entry) continue;
    for (const char* const name : kNames) {
      const std::string value = valueOf(entry, document, name);
      if (value.empty()) continue;
      if (options.asJSON) {
        const auto [place, isNew] = places.emplace(jsonText(entry.central.name), all.size());
        // An object from the start: one made of nothing is left half made where memory runs out.
        if (isNew) all.emplace_back(place->first, nlohmann::ordered_json::object());
        all[place->second].second[name] = jsonText(value);
      } else {
        fmt::print("{}\t{}\t{}\n", tools::shown(entry.central.name), name, tools::shown(value));
      }
    }
  }
  if (!options.asJSON) return;
  JSONOutput json;
  json.beginObject();
  for (const auto& [name, values] : all) {
    json.key(name);
    json.value(values);
  }
  json.end();
}

void setModified(const Options& options, Change& change) {
  std::tm local{};
  const char* const end = strptime(options.value.c_str(), "%Y-%m-%d %H:%M:%S", &local);
  local.tm_isdst = -1;
  if (end == nullptr || *end != '\0' || local.tm_year < 80 || local.tm_year > 207) {
    refuse(options, "modified is like 2026-01-02 03:04:06, from 1980 to 2107", tools::ExitUsage);
  }
  const auto date = static_cast<std::uint16_t>((local.tm_year - 80) << 9 | (local.tm_mon + 1) << 5 |
                                               local.tm_mday);
  const auto time = static_cast<std::uint16_t>(local.tm_hour << 11 | local.tm_min << 5 |
                                               std::min(local.tm_sec, 59) / 2);
  if (dateText(date, time).empty()) refuse(options, "no such day", tools::ExitUsage);
  change.properties.push_back({options.entry, pkg::QCFPropertyZipDate, hexWord(date)});
  change.properties.push_back({options.entry, pkg::QCFPropertyZipTime, hexWord(time)});
}

void setTypeCreator(const Options& options, Change& change) {
  const bool isHex = options.value.find_first_not_of("0123456789ABCDEFabcdef") == std::string::npos;
  if (options.value.size() != 16 || !isHex) {
    refuse(options, "type-creator is 16 hexadecimal digits", tools::ExitUsage);
  }
  std::string upper = options.value;
  std::transform(upper.begin(), upper.end(), upper.begin(),
                 [](char c) { return c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c; });
  change.properties.push_back({options.entry, pkg::QCFPropertyZipTypeCreator, upper});
}

void setGeneric(const Options& options, Change& change) {
  const bool isText =
      isUTF8(options.value) && std::none_of(options.value.begin(), options.value.end(), [](char c) {
        return static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n';
      });
  if (!isText) refuse(options, "a value is UTF-8 without control characters", tools::ExitUsage);
  if (options.entry.find_first_of("&<\"") != std::string::npos || !isUTF8(options.entry)) {
    refuse(options, "the name of this entry cannot stand in the properties document");
  }
  const auto name = options.name == "datetime"   ? pkg::QCFPropertyDateTime
                    : options.name == "mac-type" ? pkg::QCFPropertyMacType
                                                 : pkg::QCFPropertyMacCreator;
  change.properties.push_back({options.entry, name, options.value});
}

// A document that says more than the library keeps would lose it.
void requireKeepable(const ziplayout::Layout& layout, const Options& options) {
  documentOf(layout, options);
  const ziplayout::Entry* const entry = layout.find(kPropertiesName);
  if (entry == nullptr) return;
  const std::string text = ziplayout::readEntry(layout, *entry, std::uint64_t{1} << 26);
  if (readProperties(text).foreign) {
    refuse(options, "the properties document holds what a change would lose");
  }
}

void set(const Tool& tool, const Options& options) {
  Change change;
  if (options.name == "modified") {
    setModified(options, change);
  } else if (options.name == "type-creator") {
    setTypeCreator(options, change);
  } else {
    setGeneric(options, change);
  }
  PackageFile file = PackageFile::existing(tool, options.package);
  const ziplayout::Layout layout(options.package);
  layout.requireWhole();
  if (entryOf(layout, options).isFolder()) refuse(options, "a folder has no properties");
  if (keyOf(change.properties.front().name) != nullptr) requireKeepable(layout, options);
  changePackage(tool, file, layout, change);
}

void addPackage(tools::Command& command, Options& options) {
  command.option("PACKAGE", options.package, "A package").required();
}

void addName(tools::Command& command, Options& options) {
  command.option("ENTRY", options.entry, "The name of a file entry").required();
  command.option("NAME", options.name, fmt::format("One of {}", fmt::join(kNames, ", ")))
      .required()
      .oneOf(std::vector<std::string>(kNames.begin(), kNames.end()));
}

}  // namespace

void addProp(tools::Command& program, Tool& tool) {
  tools::Command command = program.command("prop", "The properties of entries: get, set or list");
  auto options = std::make_shared<Options>();
  command.footer(
      "Examples:\n"
      "  qcfpkg prop list notes.pkg\n"
      "  qcfpkg prop set notes.pkg letter.txt mac-type TEXT\n"
      "  qcfpkg prop get notes.pkg letter.txt modified");

  tools::Command getCommand = command.command("get", "One property");
  addPackage(getCommand, *options);
  addName(getCommand, *options);
  getCommand.run([options] { get(*options); });

  tools::Command setCommand = command.command("set", "Sets one property");
  addPackage(setCommand, *options);
  addName(setCommand, *options);
  setCommand.option("VALUE", options->value, "Its value").required();
  setCommand.run([&tool, options] {
    options->verb = "set";
    set(tool, *options);
  });

  tools::Command listCommand = command.command("list", "Every property, one a line");
  addPackage(listCommand, *options);
  listCommand.option("ENTRY", options->entry, "Of this entry only");
  listCommand.flag("--json", options->asJSON, "As JSON");
  listCommand.run([options] { list(*options); });
}
