#include <fmt/format.h>

#include "PackageUpdate.h"
#include "Texts.h"
#include "Tool.h"

namespace {

std::string changeText(const std::string& path, std::uint64_t before, std::uint64_t after) {
  const std::string from = sizeText(before);
  const std::string to = sizeText(after);
  if (from != to) return fmt::format("{} went from {} to {}", tools::shown(path), from, to);
  return after < before
             ? fmt::format("{} is smaller by {}", tools::shown(path), sizeText(before - after))
             : fmt::format("{} was written anew and is no smaller", tools::shown(path));
}

void run(const Tool& tool, const std::string& path) {
  PackageFile file = PackageFile::existing(tool, path);
  const ziplayout::Layout layout(path);
  layout.requireWhole();
  if (layout.gaps().empty()) {
    tool.note(fmt::format("{} has no dead bytes", tools::shown(path)));
    return;
  }
  Change change;
  change.dropsLeading = true;
  changePackage(tool, file, layout, change);
  const ziplayout::Layout compacted(path);
  tool.note(changeText(path, layout.file().size(), compacted.file().size()));
}

}  // namespace

void addCompact(tools::Command& program, Tool& tool) {
  tools::Command command =
      program.command("compact", "Frees the room of all that belongs to no entry");
  auto package = std::make_shared<std::string>();
  command.option("PACKAGE", *package, "A package").required();
  command.footer(
      "Example:\n"
      "  qcfpkg compact notes.pkg");
  command.run([&tool, package] { run(tool, *package); });
}
