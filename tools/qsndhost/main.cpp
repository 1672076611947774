#include <CLI/CLI.hpp>

#include "Host.h"

namespace {

void describe(CLI::App& app, Host& host) {
  app.description("Opens sound documents through their importer, as a host does.");
  app.set_version_flag("--version", host.program + " " + QSND_VERSION);
  app.add_option("--bundle", host.bundlePath,
                 "The importer bundle, instead of the one that came along")
      ->check(tools::folderFault)
      ->type_name("FOLDER");
  app.add_flag_callback(
      "--no-isolate", [&host] { host.isolate = false; },
      "Import in this process: a crash of the importer is one of the program");
  app.add_option("--timeout", host.timeout,
                 "How long the importer may take for an answer, 60 by default; 0 for any time")
      ->check(CLI::Range(0, 1000000).description(""))
      ->type_name("SECONDS");
  app.add_flag("-q,--quiet", host.quiet, "Tell failures only");
  app.require_subcommand(1);
  app.fallthrough();
  app.footer(
      "Examples:\n"
      "  qsndhost info song.qsnd\n"
      "  qsndhost export song.qsnd song.wav\n"
      "  qsndhost waveform song.qsnd song.png\n"
      "  qsndhost make song.wav new.qsnd\n"
      "\n"
      "Exit status: 0 done, 2 wrong use, 3 unreadable input, a fault of the importer or a failed "
      "write.");
  addFormats(app, host);
  addInfo(app, host);
  addExport(app, host);
  addWaveform(app, host);
  addMake(app, host);
}

}  // namespace

int main(int argc, char** argv) {
  Host host;
  host.program = "qsndhost";
  return tools::runProgram(
      host, [&host](CLI::App& app) { describe(app, host); }, argc, argv);
}
