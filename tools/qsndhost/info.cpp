#include <cstdio>

#include <fmt/format.h>

#include "Batch.h"
#include "Words.h"

namespace {

nlohmann::json describeJSON(const hostkit::AudioInfo& info) {
  return {{"channels", info.channels},
          {"sampleRate", info.sampleRate},
          {"sampleFormat", sampleFormatName(info.sampleFormat)},
          {"frames", info.frames},
          {"duration", info.sampleRate > 0 ? nlohmann::json(secondsOf(info)) : nullptr}};
}

std::string describeText(const std::string& path, const hostkit::AudioInfo& info) {
  return fmt::format(
      "{}\n  channels  {}\n  rate      {} Hz\n  format    {}\n  frames    {}\n  duration  {}\n",
      tools::shown(path), info.channels, static_cast<double>(info.sampleRate),
      sampleFormatName(info.sampleFormat), info.frames, durationText(info));
}

struct Options {
  std::vector<std::string> files;
  bool asJSON = false;
};

void run(Host& host, const Options& options) {
  const auto list = forEachDocument(host, options.files, "open", !options.asJSON,
                                    [&](const std::string& file, const std::string&) {
                                      const auto source = host.open(file);
                                      const hostkit::AudioInfo info = source->info();
                                      source->close();
                                      if (options.asJSON) return describeJSON(info);
                                      fmt::print("{}", describeText(file, info));
                                      return nlohmann::json::object();
                                    });
  if (options.asJSON) printJSON(list);
}

}  // namespace

void addInfo(tools::Command& program, Host& host) {
  tools::Command command =
      program.command("info", "Channels, rate, sample format, frames and duration of documents");
  auto options = std::make_shared<Options>();
  command.option("FILE", options->files, "Sound documents").required();
  command.flag("--json", options->asJSON, "As JSON, an array");
  command.footer(
      "Examples:\n"
      "  qsndhost info song.qsnd\n"
      "  qsndhost info --json *.qsnd");
  command.run([&host, options] { run(host, *options); });
}
