#include <cstdio>

#include <fmt/format.h>

#include "Batch.h"

namespace {

nlohmann::json describeJSON(const std::vector<hostkit::Format>& formats) {
  auto list = nlohmann::json::array();
  for (const auto& format : formats) {
    list.push_back({{"type", format.type},
                    {"name", format.name},
                    {"shortName", format.shortName},
                    {"extensions", format.extensions},
                    {"flags", format.flags}});
  }
  return list;
}

void printText(const std::vector<hostkit::Format>& formats) {
  for (const auto& format : formats) {
    fmt::print("{}  {} ({})  .{}\n", format.type, format.name, format.shortName,
               fmt::join(format.extensions, " ."));
  }
}

}  // namespace

void addFormats(tools::Command& program, Host& host) {
  tools::Command command = program.command("formats", "What the importer offers");
  auto asJSON = std::make_shared<bool>(false);
  command.flag("--json", *asJSON, "As JSON, an array");
  command.footer(
      "Examples:\n"
      "  qsndhost formats\n"
      "  qsndhost formats --json");
  command.run([&host, asJSON] {
    const auto formats = host.formats();
    *asJSON ? printJSON(describeJSON(formats)) : printText(formats);
  });
}
