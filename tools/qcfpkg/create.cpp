#include <fmt/format.h>

#include "PackageUpdate.h"
#include "Texts.h"
#include "Tool.h"

namespace {

struct Options {
  std::string type;
  std::string package;
  std::vector<std::string> inputs;
  bool stored = false;
  bool overwrite = false;
};

void run(const Tool& tool, const Options& options) {
  const std::string fault = typeFault(options.type);
  if (!fault.empty()) {
    throw tools::Failure(
        fmt::format("cannot create {} with type {}: {}", tools::shown(options.package),
                    tools::shown(options.type), fault),
        tools::ExitUsage);
  }
  // First: what a killed run has left in a folder is not to be packed.
  PackageFile file = PackageFile::created(tool, options.package, options.overwrite);
  const std::vector<Input> inputs = collectInputs(tool, options.inputs, options.package);
  createPackage(tool, file, options.type, inputs, options.stored);
}

}  // namespace

void addCreate(tools::Command& program, Tool& tool) {
  tools::Command command = program.command("create", "A new package from files and folders");
  auto options = std::make_shared<Options>();
  command.option("--type", options->type, "The package's type, as application/x-notes")
      .required()
      .typeName("TYPE");
  command.option("PACKAGE", options->package, "The package to make").required();
  command.option("[NAME=]FILE", options->inputs,
                 "Files and folders; NAME is the entry's, - as FILE is standard input");
  command.flag("--store", options->stored, "Store the entries uncompressed");
  command.flag("--overwrite", options->overwrite, "Replace a file that exists");
  command.footer(
      "Examples:\n"
      "  qcfpkg create --type application/x-notes notes.pkg letter.txt pictures/\n"
      "  qcfpkg create --type application/x-notes notes.pkg text/one.txt=draft.txt\n"
      "  date | qcfpkg create --type application/x-notes notes.pkg today=-");
  command.run([&tool, options] { run(tool, *options); });
}
