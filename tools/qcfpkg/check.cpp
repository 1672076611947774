#include <algorithm>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Findings.h"
#include "JSONOutput.h"
#include "Texts.h"
#include "Tool.h"
#include "common/Progress.h"

namespace {

struct Options {
  std::vector<std::string> packages;
  bool asJSON = false;
  bool strict = false;
  bool kinds = false;
};

void checkAllData(const Tool& tool, const ziplayout::Layout& layout, Findings& findings) {
  constexpr std::uint64_t kMost = std::uint64_t{1} << 40;  // a record may say anything
  std::uint64_t total = 0;
  for (const ziplayout::Entry& entry : layout.entries())
    total += std::min(entry.central.size, kMost);
  tools::Progress progress("checking", static_cast<std::int64_t>(total), tool.quiet,
                           tools::Progress::Unit::Bytes);
  std::int64_t done = 0;
  // Records that lead to the same data could keep this at work for hours, in a small file.
  std::uint64_t left = layout.file().size();
  for (const ziplayout::Entry& entry : layout.entries()) {
    if (!entry.local) continue;
    const std::uint64_t length = entry.end(layout.file().size()) - entry.offset;
    if (length > left) {
      findings.add("data-unread", entry.central.name, entry.dataOffset,
                   "its data is not read: the entries together would have more than the file");
      continue;
    }
    left -= length;
    checkData(layout, entry, findings, [&](const char*, std::size_t size) {
      progress.update(done += static_cast<std::int64_t>(size));
    });
  }
}

Findings examine(const Tool& tool, const std::string& path) {
  const ziplayout::Layout layout(path);
  Findings findings;
  checkContainer(layout, findings);
  if (layout.defect() && layout.entries().empty()) return findings;
  checkType(layout, findings);
  checkEntries(layout, findings);
  checkNames(layout, findings);
  checkAllData(tool, layout, findings);
  checkProperties(layout, findings);
  return findings;
}

nlohmann::ordered_json describe(const Finding& finding) {
  nlohmann::ordered_json json{{"id", finding.kind.id},
                              {"severity", severityName(finding.kind.severity)}};
  json["entry"] = finding.entry.empty() ? nlohmann::ordered_json()
                                        : nlohmann::ordered_json(jsonText(finding.entry));
  json["offset"] =
      finding.offset ? nlohmann::ordered_json(*finding.offset) : nlohmann::ordered_json();
  json["text"] = jsonText(finding.text);
  json["advice"] = finding.kind.advice;
  return json;
}

void print(const std::string& path, const Finding& finding) {
  std::string place = tools::shown(path);
  if (!finding.entry.empty()) place += ": " + tools::shown(finding.entry);
  if (finding.offset) place += fmt::format(" at {}", *finding.offset);
  fmt::print("{}: {} {}: {}; {}\n", place, severityName(finding.kind.severity), finding.kind.id,
             finding.text, finding.kind.advice);
}

void print(JSONOutput& json, const std::string& path, const Findings& findings) {
  json.beginObject();
  json.key("file");
  json.value(jsonText(path));
  json.key("findings");
  json.beginList();
  for (const Finding& finding : findings.all())
    json.value(describe(finding));
  json.end();
  json.end();
}

bool fails(const Findings& findings, const Options& options) {
  return findings.count(Severity::Error) + findings.count(Severity::Warning) != 0 ||
         (options.strict && !findings.all().empty());
}

void listKinds(bool asJSON) {
  auto list = nlohmann::ordered_json::array();
  for (const FindingKind& kind : findingKinds()) {
    const char* const severity = severityName(kind.severity);
    list.push_back({{"id", kind.id}, {"severity", severity}, {"advice", kind.advice}});
    if (!asJSON) fmt::print("{:<26} {:<8} {}\n", kind.id, severity, kind.advice);
  }
  if (asJSON) fmt::print("{}\n", list.dump(2));
}

void run(Tool& tool, const Options& options) {
  if (options.kinds) return listKinds(options.asJSON);
  if (options.packages.empty()) {
    throw tools::Failure("PACKAGE is required; see qcfpkg check --help", tools::ExitUsage);
  }
  JSONOutput json;
  if (options.asJSON) json.beginList();
  bool anyFails = false;
  for (const std::string& path : options.packages) {
    try {
      const Findings findings = examine(tool, path);
      anyFails = anyFails || fails(findings, options);
      if (options.asJSON) {
        print(json, path, findings);
      } else if (!tool.quiet) {
        for (const Finding& finding : findings.all())
          print(path, finding);
      }
    } catch (const tools::Failure& failure) {  // the others are examined all the same
      tool.report(failure);
      if (!options.asJSON) continue;
      json.value({{"file", jsonText(path)}, {"error", jsonText(failure.what())}});
    }
  }
  if (options.asJSON) json.end();
  if (anyFails && tool.code == tools::ExitDone) tool.code = tools::ExitFindings;
}

}  // namespace

void addCheck(tools::Command& program, Tool& tool) {
  tools::Command command = program.command("check", "What is wrong with packages, and what to do");
  auto options = std::make_shared<Options>();
  command.option("PACKAGE", options->packages, "Packages, or other files of the kind");
  command.flag("--json", options->asJSON, "As JSON");
  command.flag("--strict", options->strict, "Let notes count as findings, too");
  command.flag("--kinds", options->kinds, "List every kind of finding, and examine nothing");
  command.footer(
      "Each finding is one line: file, entry, offset, severity, identifier, text, and what to do.\n"
      "Exit status 1 tells of errors or warnings; with --quiet it is all that is told.\n"
      "\n"
      "Examples:\n"
      "  qcfpkg check notes.pkg\n"
      "  qcfpkg check --strict book.epub letter.odt\n"
      "  qcfpkg check --json notes.pkg | jq '.[].findings[].id'");
  command.run([&tool, options] { run(tool, *options); });
}
