#include "Host.h"

namespace {

void describe(tools::Command& program, Host& host) {
  program.about("Opens sound documents through their importer, as a host does.", QSND_VERSION);
  program
      .option("--bundle", host.bundlePath,
              "The importer bundle, instead of the one that came along")
      .folder();
  program.flag("--no-isolate", host.inProcess,
               "Import and draw in this process: a crash of the importer is one of the program");
  program
      .option("--timeout", host.timeout,
              "How long the importer may take for an answer, or a picture to be drawn, 60 by "
              "default; 0 for any time")
      .range(0, 1000000)
      .typeName("SECONDS");
  program.flag("-q,--quiet", host.quiet, "Tell failures only");
  program.footer(
      "Examples:\n"
      "  qsndhost info song.qsnd\n"
      "  qsndhost export song.qsnd song.wav\n"
      "  qsndhost waveform song.qsnd song.png\n"
      "  qsndhost make song.wav new.qsnd\n"
      "\n"
      "Exit status: 0 done, 2 wrong use, 3 unreadable input, a fault of the importer or a failed "
      "write.");
  addFormats(program, host);
  addInfo(program, host);
  addExport(program, host);
  addWaveform(program, host);
  addMake(program, host);
}

}  // namespace

int main(int argc, char** argv) {
  Host host;
  host.program = "qsndhost";
  return tools::runProgram(
      host, [&host](tools::Command& program) { describe(program, host); }, argc, argv);
}
