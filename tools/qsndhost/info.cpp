#include <algorithm>
#include <cmath>
#include <cstdio>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Host.h"

namespace {

double secondsOf(const hostkit::AudioInfo& info) {
  return info.sampleRate > 0 ? static_cast<double>(info.frames) / info.sampleRate : 0;
}

// h:mm:ss.mmm
std::string durationText(const hostkit::AudioInfo& info) {
  if (info.sampleRate <= 0) return "unknown";
  const auto milliseconds = std::llround(secondsOf(info) * 1000);
  return fmt::format("{}:{:02}:{:02}.{:03}", milliseconds / 3600000, milliseconds / 60000 % 60,
                     milliseconds / 1000 % 60, milliseconds % 1000);
}

nlohmann::json describeJSON(const std::string& path, const hostkit::AudioInfo& info) {
  return {{"file", path},
          {"channels", info.channels},
          {"sampleRate", info.sampleRate},
          {"sampleFormat", sampleFormatName(info.sampleFormat)},
          {"frames", info.frames},
          {"duration", secondsOf(info)}};
}

std::string describeText(const std::string& path, const hostkit::AudioInfo& info) {
  return fmt::format(
      "{}\n  channels  {}\n  rate      {} Hz\n  format    {}\n  frames    {}\n  duration  {}\n",
      tools::shown(path), info.channels, info.sampleRate, sampleFormatName(info.sampleFormat),
      info.frames, durationText(info));
}

struct Options {
  std::vector<std::string> files;
  bool asJSON = false;
};

// One unreadable file does not keep the others from being told of.
void run(Host& host, const Options& options) {
  const auto bundle = host.loadBundle();
  auto list = nlohmann::json::array();
  for (const std::string& file : options.files) {
    try {
      const auto document = openDocument(bundle, file);
      if (options.asJSON) {
        list.push_back(describeJSON(file, document->info()));
      } else {
        fmt::print("{}", describeText(file, document->info()));
      }
    } catch (const tools::Failure& failure) {
      host.report(failure);
      list.push_back({{"file", file}, {"error", failure.what()}});
    }
  }
  if (options.asJSON) {
    fmt::print("{}\n", list.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
  }
}

}  // namespace

void addInfo(CLI::App& app, Host& host) {
  auto* const command =
      app.add_subcommand("info", "Channels, rate, sample format, frames and duration of documents");
  auto options = std::make_shared<Options>();
  command->add_option("FILE", options->files, "Sound documents")->required();
  command->add_flag("--json", options->asJSON, "As JSON");
  command->callback([&host, options] { run(host, *options); });
}
