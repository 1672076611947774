#include <fmt/format.h>

#include "PackageUpdate.h"
#include "Texts.h"
#include "Tool.h"

namespace {

struct Options {
  std::string package;
  std::string comment;
  bool inPlace = false;
};

void print(const Options& options) {
  const ziplayout::Layout layout(options.package);
  layout.requireWhole();
  if (!layout.end().comment.empty()) fmt::print("{}\n", layout.end().comment);
}

void set(const Tool& tool, const Options& options) {
  const std::string fault = commentFault(options.comment);
  if (!fault.empty()) {
    throw tools::Failure(
        fmt::format("cannot change the comment of {}: {}", tools::shown(options.package), fault),
        tools::ExitUsage);
  }
  PackageFile file = PackageFile::existing(tool, options.package);
  const ziplayout::Layout layout(options.package);
  layout.requireWhole();
  if (layout.end().comment == options.comment) return;
  Change change;
  change.comment = options.comment;
  change.inPlace = options.inPlace;
  changePackage(tool, file, layout, change);
}

}  // namespace

void addComment(tools::Command& program, Tool& tool) {
  tools::Command command = program.command("comment", "The comment of a package: print or set it");
  auto options = std::make_shared<Options>();
  command.option("PACKAGE", options->package, "A package").required();
  const tools::Option comment =
      command.option("COMMENT", options->comment, "The new comment; empty for none");
  command.flag("--in-place", options->inPlace,
               "Write into the file itself: quick for large packages, but a kill or power cut "
               "in the middle leaves a file without a directory, which is no package");
  command.footer(
      "Examples:\n"
      "  qcfpkg comment notes.pkg\n"
      "  qcfpkg comment notes.pkg 'second edition'\n"
      "  qcfpkg comment notes.pkg ''");
  command.run(
      [&tool, options, comment] { comment.given() ? set(tool, *options) : print(*options); });
}
