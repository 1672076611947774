#include <cctype>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <stdexcept>

#include <fmt/format.h>

#include "Batch.h"
#include "HostKit/ChildProcess.h"
#include "Stretch.h"
#include "WaveformPicture.h"
#include "Words.h"
#include "common/OutputFile.h"
#include "common/Progress.h"

namespace {

constexpr OutputWords kWords{"waveform", "draw", "OUT.png|OUT.svg"};

struct Options {
  Outputs outputs;
  std::string kind;  // "png" or "svg" as given, else empty
  Theme theme = Theme::Light;
  int width = 1200;
  int height = 0;  // 0: what suits the channels
  Stretch stretch;
  bool asJSON = false;
};

std::string endingOf(const std::string& path) {
  std::string ending = std::filesystem::path(path).extension().string();
  for (char& character : ending)
    character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
  return ending;
}

bool isPicture(const std::string& path) {
  const std::string ending = endingOf(path);
  return path == "-" || ending == ".png" || ending == ".svg";
}

PictureKind kindOf(const Options& options, const std::string& output) {
  if (!options.kind.empty()) return options.kind == "svg" ? PictureKind::SVG : PictureKind::PNG;
  if (isPicture(output)) return endingOf(output) == ".svg" ? PictureKind::SVG : PictureKind::PNG;
  throw tools::Failure(fmt::format("cannot tell what kind of picture {} is to be: let it end in "
                                   ".png or .svg, or use --as",
                                   tools::shown(output)),
                       tools::ExitUsage);
}

// A waveform on its way from a document to its outputs.
struct Waveform {
  hostkit::AudioInfo info;
  Stretch stretch;
  WaveformLayout layout;
  WaveformSummary summary;
};

Waveform summarise(Host& host, const Options& options, const std::string& file,
                   const std::string& label) {
  const auto source = host.open(file);
  const hostkit::AudioInfo info = source->info();
  const Stretch stretch = stretchIn(*source, options.stretch, kWords.verb, file);
  const int height = options.height != 0 ? options.height : comfortableHeight(info.channels);
  const WaveformLayout layout = layoutWaveform(options.width, height, info.channels);
  Waveform waveform{info, stretch, layout,
                    WaveformSummary(deliveredChannels(info), stretch.frames,
                                    static_cast<std::size_t>(layout.plot.width))};
  tools::Progress progress(label, stretch.frames, host.quiet);
  readStretch(*source, file, stretch,
              [&](const auto& buffers, std::size_t frames, std::int64_t done) {
                waveform.summary.add(buffers, frames);
                progress.update(done);
              });
  source->close();
  return waveform;
}

WaveformTexts describe(const std::string& file, const Waveform& waveform) {
  const hostkit::AudioInfo& info = waveform.info;
  WaveformTexts texts;
  texts.name = tools::shown(std::filesystem::path(file).filename().string());
  texts.channels = info.channels;
  const std::size_t lanes = waveform.layout.lanes.size();
  const std::string channels = info.channels == 1   ? "mono"
                               : info.channels == 2 ? "stereo"
                                                    : countText(info.channels, "channel");
  texts.details =
      fmt::format("{}  ·  {}  ·  {}  ·  {}", rateText(info.sampleRate), shortDurationText(info),
                  channels, sampleFormatName(info.sampleFormat));
  if (waveform.stretch.frames < info.frames) {
    texts.details += fmt::format("  ·  {} from {}", countText(waveform.stretch.frames, "frame"),
                                 waveform.stretch.start);
  }
  if (lanes < info.channels) texts.details += fmt::format("  ·  first {} drawn", lanes);
  if (info.sampleRate > 0) {
    texts.start = static_cast<double>(waveform.stretch.start) / info.sampleRate;
    texts.span = static_cast<double>(waveform.stretch.frames) / info.sampleRate;
  }
  return texts;
}

// Seven decimals tell all that 24 bits can.
double rounded(float value) {
  return std::nearbyint(static_cast<double>(value) * 1e7) / 1e7;
}

nlohmann::json describeJSON(const Waveform& waveform) {
  auto lanes = nlohmann::json::array();
  for (std::size_t i = 0; i < waveform.summary.channels(); ++i) {
    std::vector<double> minimum, maximum, rms;
    for (const WaveformColumn& column : waveform.summary.channel(i)) {
      minimum.push_back(rounded(column.minimum));
      maximum.push_back(rounded(column.maximum));
      rms.push_back(rounded(column.rms));
    }
    lanes.push_back({{"min", minimum}, {"max", maximum}, {"rms", rms}});
  }
  return {{"channels", waveform.info.channels},    {"sampleRate", waveform.info.sampleRate},
          {"start", waveform.stretch.start},       {"frames", waveform.stretch.frames},
          {"columns", waveform.summary.columns()}, {"waveform", lanes}};
}

// In a process of its own: the libraries that look for fonts do not always live through what goes
// wrong there.
void draw(const Host& host, const tools::OutputFile& output, PictureKind kind, Theme theme,
          const WaveformTexts& texts, const Waveform& waveform) try {
  const auto write = [&](const std::string&) {
    writeWaveform(output.descriptor(), kind, theme, waveform.layout, texts, waveform.summary);
    return std::string();
  };
  if (host.inProcess) {
    write({});
  } else {
    hostkit::ChildProcess("drawing", write, std::chrono::seconds(host.timeout)).ask({});
  }
} catch (const std::runtime_error& error) {
  throw output.failure(error.what());
}

nlohmann::json drawDocument(Host& host, const Options& options, const Task& task,
                            const std::string& label) {
  const PictureKind kind = kindOf(options, task.output);
  const Waveform waveform = summarise(host, options, task.file, label);
  tools::OutputFile output(host, task.output);
  draw(host, output, kind, options.theme, describe(task.file, waveform), waveform);
  output.commit();
  return options.asJSON ? describeJSON(waveform) : nlohmann::json::object();
}

void drawAll(Host& host, const Options& options) {
  const std::string extension = options.kind == "svg" ? ".svg" : ".png";
  const auto tasks = tasksOf(options.outputs, kWords, extension);
  for (const Task& task : tasks)
    kindOf(options, task.output);
  runTasks(host, tasks, kWords, options.asJSON, [&](const Task& task, const std::string& label) {
    return drawDocument(host, options, task, label);
  });
}

// A pixel takes four bytes, and time.
void checkSize(const Options& options) {
  constexpr std::int64_t kMostPixels = 100'000'000;
  if (std::int64_t{options.width} * options.height > kMostPixels) {
    throw tools::Failure("--width times --height is more than 100 million pixels",
                         tools::ExitUsage);
  }
}

void run(Host& host, const Options& options) {
  checkSize(options);
  const Outputs& outputs = options.outputs;
  const bool draws = !options.asJSON || !outputs.folder.empty() ||
                     (outputs.arguments.size() > 1 && isPicture(outputs.arguments.back()));
  if (draws) return drawAll(host, options);
  printJSON(forEachDocument(host, outputs.arguments, kWords.verb, false,
                            [&](const std::string& file, const std::string& label) {
                              return describeJSON(summarise(host, options, file, label));
                            }));
}

}  // namespace

void addWaveform(tools::Command& program, Host& host) {
  tools::Command command =
      program.command("waveform", "Pictures of documents: a lane a channel, peak and RMS");
  auto options = std::make_shared<Options>();
  addOutputs(command, options->outputs, kWords);
  command.option("--as", options->kind, "png or svg, whatever the output's name; png for -")
      .oneOf({"png", "svg"})
      .typeName("KIND");
  command
      .option(
          "--theme",
          [options](const std::string& name) {
            options->theme = name == "dark" ? Theme::Dark : Theme::Light;
          },
          "light (the default) or dark")
      .oneOf({"light", "dark"})
      .typeName("THEME");
  command.option("--width", options->width, "Pixels with the margins, 1200 by default")
      .range(16, 32767)
      .typeName("PIXELS");
  command.option("--height", options->height, "Pixels; by default what suits the channels")
      .range(16, 32767)
      .typeName("PIXELS");
  addStretchOptions(command, options->stretch);
  command.flag(
      "--json", options->asJSON,
      "Minimum, maximum and RMS of each column inside the margins as JSON, an array; OUT may be "
      "left out");
  command.footer(
      "Examples:\n"
      "  qsndhost waveform song.qsnd song.png\n"
      "  qsndhost waveform song.qsnd start.svg --frames 48000 --theme dark\n"
      "  qsndhost waveform --folder pictures --width 800 *.qsnd\n"
      "  qsndhost waveform song.qsnd --json --width 400\n"
      "  qsndhost waveform song.qsnd - >song.png");
  command.run([&host, options] { run(host, *options); });
}
