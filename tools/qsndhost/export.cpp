#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>

#include <fmt/format.h>

#include "Host.h"
#include "WaveWriter.h"
#include "common/OutputFile.h"
#include "common/Progress.h"

namespace {

constexpr std::int64_t kBlockFrames = 65536;

struct Options {
  std::string file;
  std::string output;
  WaveFormat format = WaveFormat::Float;
  std::int64_t start = 0;
  std::int64_t frames = std::numeric_limits<std::int64_t>::max();
};

WaveFormat formatNamed(const std::string& name) {
  if (name == "float") return WaveFormat::Float;
  if (name == "24") return WaveFormat::Int24;
  if (name == "16") return WaveFormat::Int16;
  throw CLI::ValidationError("--format", "must be float, 24 or 16");
}

void checkOutput(const Options& options) {
  std::error_code error;
  if (options.output != "-" && std::filesystem::equivalent(options.file, options.output, error)) {
    throw tools::Failure(fmt::format("cannot export {}: the output is the document itself",
                                     tools::shown(options.file)),
                         tools::ExitUsage);
  }
}

// How many frames are to be written. The importer finds a frame by its byte offset in 31 bits; what
// lies behind that would come out wrong.
std::int64_t framesToExport(const Options& options, const hostkit::Document& document) {
  const std::int64_t total = document.info().frames;
  if (options.start > total) {
    throw tools::Failure(fmt::format("cannot export {}: --start {} is behind the end, {} frames",
                                     tools::shown(options.file), options.start, total),
                         tools::ExitUsage);
  }
  const std::int64_t frames = std::min(options.frames, total - options.start);
  const std::int64_t reachable = document.reachableFrames();
  if (options.start + frames > reachable) {
    throw tools::Failure(
        fmt::format("cannot export {}: only the first {} frames can be read through the importer",
                    tools::shown(options.file), reachable));
  }
  return frames;
}

int wholeRate(const Options& options, const hostkit::AudioInfo& info) {
  if (info.sampleRate >= 1 && info.sampleRate < 2147483648.0f) {
    return static_cast<int>(std::lround(info.sampleRate));
  }
  throw tools::Failure(fmt::format("cannot export {}: a WAV file cannot have a rate of {} Hz",
                                   tools::shown(options.file), info.sampleRate));
}

void copyAudio(const Host& host, const Options& options, hostkit::Document& document,
               std::int64_t frames, WaveWriter& writer) {
  const std::size_t channels = document.info().channels;
  const std::size_t delivered = std::min(channels, hostkit::kMostChannelsDelivered);
  std::vector<std::vector<float>> buffers(channels, std::vector<float>(kBlockFrames));
  std::vector<float*> pointers;
  for (auto& buffer : buffers)
    pointers.push_back(buffer.data());
  tools::Progress progress("exporting", frames, host.quiet);
  for (std::int64_t done = 0; done < frames; done += kBlockFrames) {
    const auto count = static_cast<std::uint32_t>(std::min(kBlockFrames, frames - done));
    try {
      document.read(options.start + done, count, pointers.data());
    } catch (const hostkit::Error& error) {
      throw tools::Failure(
          fmt::format("cannot export {}: {}", tools::shown(options.file), error.what()));
    }
    writer.write({buffers.begin(), buffers.begin() + static_cast<std::ptrdiff_t>(delivered)},
                 count);
    progress.update(done);
  }
}

void run(const Host& host, const Options& options) {
  checkOutput(options);
  const auto bundle = host.loadBundle();
  const auto document = openDocument(bundle, options.file);
  const hostkit::AudioInfo& info = document->info();
  const std::int64_t frames = framesToExport(options, *document);
  const std::size_t delivered =
      std::min<std::size_t>(info.channels, hostkit::kMostChannelsDelivered);
  if (delivered < info.channels) {
    host.note(fmt::format("{}: the importer delivers the first {} of {} channels",
                          tools::shown(options.file), delivered, info.channels));
  }
  const int rate = wholeRate(options, info);
  tools::OutputFile output(options.output);
  WaveWriter writer(output.descriptor(), options.format, static_cast<int>(delivered), rate, frames);
  copyAudio(host, options, *document, frames, writer);
  writer.finish();
  output.commit();
}

}  // namespace

void addExport(CLI::App& app, Host& host) {
  auto* const command = app.add_subcommand("export", "The audio of a document as a WAV file");
  auto options = std::make_shared<Options>();
  constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
  command->add_option("FILE", options->file, "A sound document")->required();
  command->add_option("OUT.wav", options->output, "The file to write; - is standard output")
      ->required();
  command
      ->add_option_function<std::string>(
          "--format", [options](const std::string& name) { options->format = formatNamed(name); },
          "Samples: float (the default), 24 or 16")
      ->type_name("FORMAT");
  command->add_option("--start", options->start, "The first frame, from 0")
      ->check(CLI::Range(std::int64_t{0}, kMost).description(""))
      ->type_name("FRAME");
  command->add_option("--frames", options->frames, "How many frames; all that follow by default")
      ->check(CLI::Range(std::int64_t{0}, kMost).description(""))
      ->type_name("COUNT");
  command->callback([&host, options] { run(host, *options); });
}
