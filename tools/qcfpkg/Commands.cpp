#include "Commands.h"

#include <CLI/CLI.hpp>

#include "Tool.h"

namespace {

void describe(CLI::App& app, Tool& tool) {
  app.description("Makes, changes and examines packages: ZIP files that begin with their type.");
  app.set_version_flag("--version", tool.program + " " + QCF_VERSION);
  app.add_flag("-q,--quiet", tool.quiet, "Tell failures only");
  app.require_subcommand(1);
  app.fallthrough();
  app.footer(
      "Examples:\n"
      "  qcfpkg create --type application/x-notes notes.pkg letter.txt pictures/\n"
      "  qcfpkg list notes.pkg\n"
      "  qcfpkg add notes.pkg chapter/one.txt=draft.txt\n"
      "  qcfpkg extract notes.pkg -C folder\n"
      "  qcfpkg check notes.pkg\n"
      "\n"
      "Exit status: 0 done, 1 findings of check, 2 wrong use, 3 unreadable input or a failed "
      "write.");
  addList(app, tool);
  addInfo(app, tool);
  addCreate(app, tool);
  addAdd(app, tool);
  addRemove(app, tool);
  addCat(app, tool);
  addExtract(app, tool);
  addType(app, tool);
  addComment(app, tool);
  addProp(app, tool);
  addCheck(app, tool);
  addCompact(app, tool);
}

}  // namespace

int runQcfpkg(int argc, char** argv) {
  Tool tool;
  tool.program = "qcfpkg";
  return tools::runProgram(
      tool, [&tool](CLI::App& app) { describe(app, tool); }, argc, argv);
}
