#include "Host.h"

int main(int argc, char** argv) {
  Host host;
  host.program = "qsndhost";
  CLI::App app("Opens sound documents through their importer, as a host does.", host.program);
  app.set_version_flag("--version", host.program + " " + QSND_VERSION);
  app.add_option("--bundle", host.bundlePath,
                 "The importer bundle, instead of the one that came along")
      ->type_name("FOLDER");
  app.add_flag("-q,--quiet", host.quiet, "Tell failures only");
  app.require_subcommand(1);
  app.fallthrough();
  addFormats(app, host);
  addInfo(app, host);
  addExport(app, host);
  return tools::runProgram(app, host, argc, argv);
}
