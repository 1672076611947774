#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Findings.h"
#include "Texts.h"
#include "Tool.h"
#include "ZipLayout.h"

namespace {

struct Options {
  std::string package;
  bool asJSON = false;
};

struct Info {
  std::string type;
  std::string comment;
  std::uint64_t fileSize = 0;
  std::size_t entries = 0;
  std::uint64_t size = 0;
  std::uint64_t compressedSize = 0;
  std::vector<Finding> faults;  // of the type's entry
  bool zip64End = false;
  std::size_t zip64Entries = 0;
  std::vector<ziplayout::Extent> gaps;

  std::uint64_t deadBytes() const {
    std::uint64_t sum = 0;
    for (const auto& gap : gaps)
      sum += gap.end - gap.begin;
    return sum;
  }
};

Info gather(const ziplayout::Layout& layout) {
  Info info;
  info.type = layout.mimeType();
  info.comment = layout.end().comment;
  info.fileSize = layout.file().size();
  info.entries = layout.entries().size();
  for (const ziplayout::Entry& entry : layout.entries()) {
    info.size += entry.central.size;
    info.compressedSize += entry.central.compressedSize;
    const auto extra = ziplayout::parseExtra(entry.central.extra);
    if (extra.find(ziplayout::kExtraZip64) != nullptr) ++info.zip64Entries;
  }
  Findings findings;
  checkType(layout, findings);
  info.faults = findings.all();
  info.zip64End = layout.end().hasZip64;
  info.gaps = layout.gaps();
  return info;
}

void printJSON(const Info& info) {
  auto faults = nlohmann::ordered_json::array();
  for (const Finding& finding : info.faults)
    faults.push_back(finding.kind.id);
  auto gaps = nlohmann::ordered_json::array();
  for (const auto& gap : info.gaps) {
    gaps.push_back({{"offset", gap.begin}, {"size", gap.end - gap.begin}});
  }
  const nlohmann::ordered_json json{{"type", jsonText(info.type)},
                                    {"comment", jsonText(info.comment)},
                                    {"fileSize", info.fileSize},
                                    {"entries", info.entries},
                                    {"size", info.size},
                                    {"compressedSize", info.compressedSize},
                                    {"conforming", info.faults.empty()},
                                    {"faults", faults},
                                    {"zip64End", info.zip64End},
                                    {"zip64Entries", info.zip64Entries},
                                    {"deadBytes", info.deadBytes()},
                                    {"gaps", gaps}};
  fmt::print("{}\n", json.dump(2));
}

void printText(const std::string& path, const Info& info) {
  std::string conformance = "yes";
  if (!info.faults.empty()) conformance = "no: " + info.faults.front().text;
  std::string zip64 = info.zip64End ? "end record" : "no";
  if (info.zip64Entries != 0) {
    zip64 = fmt::format("{}{} {}", info.zip64End ? "end record, " : "", info.zip64Entries,
                        info.zip64Entries == 1 ? "entry" : "entries");
  }
  fmt::print("{}\n", tools::shown(path));
  fmt::print("  type        {}\n", info.type.empty() ? "none" : tools::shown(info.type));
  fmt::print("  conforming  {}\n", conformance);
  fmt::print("  entries     {}\n", info.entries);
  fmt::print("  size        {}, compressed {}\n", sizeText(info.size),
             sizeText(info.compressedSize));
  fmt::print("  file        {}\n", sizeText(info.fileSize));
  fmt::print("  Zip64       {}\n", zip64);
  fmt::print("  comment     {}\n", info.comment.empty() ? "none" : tools::shown(info.comment));
  fmt::print("  dead bytes  {}\n", info.deadBytes());
  for (const auto& gap : info.gaps) {
    fmt::print("    {} at offset {}\n", gap.end - gap.begin, gap.begin);
  }
}

void run(const Options& options) {
  const ziplayout::Layout layout(options.package);
  layout.requireWhole();
  const Info info = gather(layout);
  options.asJSON ? printJSON(info) : printText(options.package, info);
}

}  // namespace

void addInfo(tools::Command& program, Tool&) {
  tools::Command command =
      program.command("info", "Type, comment, conformance, Zip64 and dead bytes of a package");
  auto options = std::make_shared<Options>();
  command.option("PACKAGE", options->package, "A package").required();
  command.flag("--json", options->asJSON, "As JSON");
  command.footer(
      "Examples:\n"
      "  qcfpkg info notes.pkg\n"
      "  qcfpkg info --json notes.pkg | jq .deadBytes");
  command.run([options] { run(*options); });
}
