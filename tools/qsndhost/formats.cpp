#include <cstdio>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Host.h"

namespace {

void printJSON(const std::vector<hostkit::Format>& formats) {
  auto list = nlohmann::json::array();
  for (const auto& format : formats) {
    list.push_back({{"type", format.type},
                    {"name", format.name},
                    {"shortName", format.shortName},
                    {"extensions", format.extensions},
                    {"flags", format.flags}});
  }
  fmt::print("{}\n", list.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
}

void printText(const std::vector<hostkit::Format>& formats) {
  for (const auto& format : formats) {
    fmt::print("{}  {} ({})  .{}\n", format.type, format.name, format.shortName,
               fmt::join(format.extensions, " ."));
  }
}

}  // namespace

void addFormats(CLI::App& app, Host& host) {
  auto* const command = app.add_subcommand("formats", "What the importer offers");
  auto asJSON = std::make_shared<bool>(false);
  command->add_flag("--json", *asJSON, "As JSON");
  command->callback([&host, asJSON] {
    const auto formats = host.loadBundle().formats();
    *asJSON ? printJSON(formats) : printText(formats);
  });
}
