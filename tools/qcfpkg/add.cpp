#include <fmt/format.h>

#include "PackageUpdate.h"
#include "Tool.h"

namespace {

struct Options {
  std::string package;
  std::vector<std::string> inputs;
  bool stored = false;
  bool inPlace = false;
};

void refuseConflicts(const ziplayout::Layout& layout, const Options& options,
                     const std::vector<Input>& inputs) {
  std::set<std::string> names;
  for (const ziplayout::Entry& entry : layout.entries())
    names.insert(entry.central.name);
  for (const Input& input : inputs) {
    const std::string other = conflictingName(names, input.name);
    if (other.empty()) continue;
    throw tools::Failure(fmt::format("cannot add {} to {}: {} is there, and one is a folder",
                                     tools::shown(input.name), tools::shown(options.package),
                                     tools::shown(other)));
  }
}

void run(const Tool& tool, const Options& options) {
  PackageFile file = PackageFile::existing(tool, options.package);
  const ziplayout::Layout layout(options.package);
  layout.requireWhole();
  Change change;
  change.added = collectInputs(tool, options.inputs, options.package);
  change.stored = options.stored;
  change.inPlace = options.inPlace;
  refuseConflicts(layout, options, change.added);
  changePackage(tool, file, layout, change);
}

}  // namespace

void addAdd(tools::Command& program, Tool& tool) {
  tools::Command command = program.command("add", "Files into a package; replaces those of a name");
  auto options = std::make_shared<Options>();
  command.option("PACKAGE", options->package, "A package").required();
  command
      .option("[NAME=]FILE", options->inputs,
              "Files and folders; NAME is the entry's, - as FILE is standard input")
      .required();
  command.flag("--store", options->stored, "Store the entries uncompressed");
  command.flag("--in-place", options->inPlace,
               "Append to the file itself: quick for large packages, but a kill or power cut "
               "in the middle leaves a file without a directory, which is no package");
  command.footer(
      "Examples:\n"
      "  qcfpkg add notes.pkg letter.txt\n"
      "  qcfpkg add notes.pkg chapter/one.txt=draft.txt pictures/\n"
      "  gzip -dc log.gz | qcfpkg add notes.pkg log=-");
  command.run([&tool, options] { run(tool, *options); });
}
