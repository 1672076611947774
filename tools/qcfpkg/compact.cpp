#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "PackageUpdate.h"
#include "Texts.h"
#include "Tool.h"

namespace {

void run(const Tool& tool, const std::string& path) {
  PackageFile file = PackageFile::existing(tool, path);
  const ziplayout::Layout layout(file.path());
  layout.requireWhole();
  if (layout.gaps().empty()) {
    tool.note(fmt::format("{} has no dead bytes", tools::shown(path)));
    return;
  }
  changePackage(tool, file, layout, Change());
  const ziplayout::Layout compacted(file.path());
  tool.note(fmt::format("{} went from {} to {}", tools::shown(path), sizeText(layout.file().size()),
                        sizeText(compacted.file().size())));
}

}  // namespace

void addCompact(CLI::App& app, Tool& tool) {
  auto* const command =
      app.add_subcommand("compact", "Frees the room of replaced and removed entries");
  auto package = std::make_shared<std::string>();
  command->add_option("PACKAGE", *package, "A package")->required();
  command->footer(
      "Example:\n"
      "  qcfpkg compact notes.pkg");
  command->callback([&tool, package] { run(tool, *package); });
}
