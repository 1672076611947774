#include <cmath>

#include <fmt/format.h>

#include "Batch.h"
#include "Stretch.h"
#include "WaveWriter.h"
#include "common/OutputFile.h"
#include "common/Progress.h"

namespace {

constexpr OutputWords kWords{"export", "export", "OUT.wav"};

struct Options {
  Outputs outputs;
  WaveFormat format = WaveFormat::Float;
  Stretch stretch;
  bool asJSON = false;
};

WaveFormat formatNamed(const std::string& name) {
  if (name == "float") return WaveFormat::Float;
  if (name == "24") return WaveFormat::Int24;
  if (name == "16") return WaveFormat::Int16;
  throw tools::Failure("--format: must be float, 24 or 16; see qsndhost export --help",
                       tools::ExitUsage);
}

int wholeRate(const std::string& file, const hostkit::AudioInfo& info) {
  if (info.sampleRate >= 1 && info.sampleRate < 2147483648.0f) {
    return static_cast<int>(std::lround(info.sampleRate));
  }
  throw tools::Failure(fmt::format("cannot export {}: a WAV file cannot have a rate of {} Hz",
                                   tools::shown(file), static_cast<double>(info.sampleRate)));
}

nlohmann::json exportDocument(Host& host, const Options& options, const Task& task,
                              const std::string& label) {
  const auto source = host.open(task.file);
  const hostkit::AudioInfo& info = source->info();
  const Stretch stretch = stretchIn(*source, options.stretch, kWords.verb, task.file);
  const std::size_t delivered = deliveredChannels(info);
  if (delivered < info.channels) {
    host.note(fmt::format("{}: the importer delivers the first {} of {} channels",
                          tools::shown(task.file), delivered, info.channels));
  }
  const int rate = wholeRate(task.file, info);
  tools::OutputFile output(host, task.output);
  WaveWriter writer(output, options.format, static_cast<int>(delivered), rate, stretch.frames);
  {
    tools::Progress progress(label, stretch.frames, host.quiet);
    readStretch(*source, task.file, stretch,
                [&](const auto& buffers, std::size_t frames, std::int64_t done) {
                  writer.write(buffers, frames);
                  progress.update(done);
                });
  }
  writer.finish();
  source->close();
  output.commit();
  return {{"channels", delivered},
          {"sampleRate", rate},
          {"start", stretch.start},
          {"frames", stretch.frames}};
}

void run(Host& host, const Options& options) {
  const auto tasks = tasksOf(options.outputs, kWords, ".wav");
  runTasks(host, tasks, kWords, options.asJSON, [&](const Task& task, const std::string& label) {
    return exportDocument(host, options, task, label);
  });
}

}  // namespace

void addExport(tools::Command& program, Host& host) {
  tools::Command command = program.command("export", "The audio of documents as WAV files");
  auto options = std::make_shared<Options>();
  addOutputs(command, options->outputs, kWords);
  command
      .option(
          "--format", [options](const std::string& name) { options->format = formatNamed(name); },
          "Samples: float (the default), 24 or 16")
      .typeName("FORMAT");
  addStretchOptions(command, options->stretch);
  command.flag("--json", options->asJSON, "Tell what was written as JSON, an array");
  command.footer(
      "Examples:\n"
      "  qsndhost export song.qsnd song.wav\n"
      "  qsndhost export song.qsnd start.wav --frames 48000 --format 24\n"
      "  qsndhost export --folder waves *.qsnd\n"
      "  qsndhost export song.qsnd - | sox - song.flac");
  command.run([&host, options] { run(host, *options); });
}
