#include "Commands.h"

#include "Tool.h"

namespace {

void describe(tools::Command& program, Tool& tool) {
  program.about("Makes, changes and examines packages: ZIP files that begin with their type.",
                QCF_VERSION);
  program.flag("-q,--quiet", tool.quiet, "Tell failures only");
  program.footer(
      "Examples:\n"
      "  qcfpkg create --type application/x-notes notes.pkg letter.txt pictures/\n"
      "  qcfpkg list notes.pkg\n"
      "  qcfpkg add notes.pkg chapter/one.txt=draft.txt\n"
      "  qcfpkg extract notes.pkg -C folder\n"
      "  qcfpkg check notes.pkg\n"
      "\n"
      "Exit status: 0 done, 1 findings of check, 2 wrong use, 3 unreadable input or a failed "
      "write.");
  addList(program, tool);
  addInfo(program, tool);
  addCreate(program, tool);
  addAdd(program, tool);
  addRemove(program, tool);
  addCat(program, tool);
  addExtract(program, tool);
  addType(program, tool);
  addComment(program, tool);
  addProp(program, tool);
  addCheck(program, tool);
  addCompact(program, tool);
}

}  // namespace

int runQcfpkg(int argc, char** argv) {
  Tool tool;
  tool.program = "qcfpkg";
  return tools::runProgram(
      tool, [&tool](tools::Command& program) { describe(program, tool); }, argc, argv);
}
