#include <algorithm>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "JSONOutput.h"
#include "Texts.h"
#include "Tool.h"
#include "ZipLayout.h"

namespace {

struct Options {
  std::string package;
  bool asJSON = false;
};

nlohmann::ordered_json describe(const ziplayout::Entry& entry) {
  const ziplayout::Header& header = entry.central;
  nlohmann::ordered_json json;
  json["name"] = jsonText(header.name);
  json["size"] = header.size;
  json["compressedSize"] = header.compressedSize;
  json["method"] = methodName(header.method);
  json["modified"] = dateText(header.date, header.time);
  json["crc32"] = fmt::format("{:08x}", header.crc);
  json["flags"] = flagsText(entry);
  json["encrypted"] = entry.isEncrypted();
  json["folder"] = entry.isFolder();
  json["offset"] = entry.offset;
  json["comment"] = jsonText(entry.comment);
  return json;
}

void printRow(const std::string& size, const std::string& compressed, const std::string& ratio,
              const std::string& method, const std::string& date, const std::string& crc,
              const std::string& flags, const std::string& name) {
  fmt::print("{:>12} {:>12} {:>5}  {:<9} {:<19}  {:<8}  {:<6} {}\n", size, compressed, ratio,
             method, date, crc, flags, name);
}

void printTable(const ziplayout::Layout& layout) {
  printRow("size", "compressed", "saved", "method", "modified", "CRC", "flags", "name");
  std::uint64_t size = 0;
  std::uint64_t compressed = 0;
  for (const ziplayout::Entry& entry : layout.entries()) {
    const ziplayout::Header& header = entry.central;
    const std::string date = dateText(header.date, header.time);
    printRow(std::to_string(header.size), std::to_string(header.compressedSize),
             ratioText(header.size, header.compressedSize), methodName(header.method),
             date.empty() ? "-" : date, fmt::format("{:08x}", header.crc), flagsText(entry),
             tools::shown(header.name));
    size += header.size;
    compressed += header.compressedSize;
  }
  const std::size_t count = layout.entries().size();
  printRow(std::to_string(size), std::to_string(compressed), ratioText(size, compressed), "", "",
           "", "", fmt::format("{} {}", count, count == 1 ? "entry" : "entries"));
}

void run(const Options& options) {
  const ziplayout::Layout layout(options.package);
  layout.requireWhole();
  if (!options.asJSON) return printTable(layout);
  JSONOutput json;
  json.beginList();
  for (const ziplayout::Entry& entry : layout.entries())
    json.value(describe(entry));
  json.end();
}

}  // namespace

void addList(tools::Command& program, Tool&) {
  tools::Command command = program.command("list", "The entries of a package");
  auto options = std::make_shared<Options>();
  command.option("PACKAGE", options->package, "A package").required();
  command.flag("--json", options->asJSON, "As JSON");
  command.footer(
      "Flags: e encrypted, d data descriptor, u UTF-8 name, x extra field, c comment, z Zip64,\n"
      "l symbolic link.\n"
      "\n"
      "Examples:\n"
      "  qcfpkg list notes.pkg\n"
      "  qcfpkg list --json notes.pkg | jq '.[].name'");
  command.run([options] { run(*options); });
}
