#include <fmt/format.h>

#include "Findings.h"
#include "PackageUpdate.h"
#include "Texts.h"
#include "Tool.h"

namespace {

struct Options {
  std::string package;
  std::string type;
};

void print(const Options& options) {
  const ziplayout::Layout layout(options.package);
  layout.requireWhole();
  const std::string type = layout.mimeType();
  if (type.empty()) {
    throw tools::Failure(fmt::format("{} tells no type", tools::shown(options.package)));
  }
  fmt::print("{}\n", tools::shown(type));
}

void set(const Tool& tool, const Options& options) {
  const std::string fault = typeFault(options.type);
  if (!fault.empty()) {
    throw tools::Failure(
        fmt::format("cannot change {} to type {}: {}", tools::shown(options.package),
                    tools::shown(options.type), fault),
        tools::ExitUsage);
  }
  PackageFile file = PackageFile::existing(tool, options.package);
  const ziplayout::Layout layout(options.package);
  layout.requireWhole();
  Findings faults;
  checkType(layout, faults);
  if (faults.all().empty() && layout.mimeType() == options.type) return;
  Change change;
  change.type = options.type;
  changePackage(tool, file, layout, change);
}

}  // namespace

void addType(tools::Command& program, Tool& tool) {
  tools::Command command = program.command("type", "The type of a package: print or set it");
  auto options = std::make_shared<Options>();
  command.option("PACKAGE", options->package, "A package").required();
  const tools::Option type =
      command.option("TYPE", options->type, "The new type, as application/x-notes");
  command.footer(
      "Setting the type also puts a missing, misplaced or compressed type entry right.\n"
      "\n"
      "Examples:\n"
      "  qcfpkg type notes.pkg\n"
      "  qcfpkg type notes.pkg application/x-notes");
  command.run([&tool, options, type] { type.given() ? set(tool, *options) : print(*options); });
}
