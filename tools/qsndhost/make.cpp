#include <fmt/format.h>

#include "package/QCFPackage.h"

#include "Host.h"
#include "SourceWave.h"
#include "Stretch.h"
#include "common/FileStatus.h"
#include "common/OutputFile.h"
#include "common/PackageType.h"
#include "common/Progress.h"

namespace {

constexpr const char* kAudioEntry = "Mixdown.wav";

struct Options {
  std::string input;
  std::string output;
  std::string type = "application/x-qsnd";
  bool deflate = false;
};

void checkOptions(const Options& options) {
  const std::string fault = tools::typeFault(options.type);
  if (!fault.empty()) {
    throw tools::Failure(
        fmt::format("cannot use the type {}: {}", tools::shown(options.type), fault),
        tools::ExitUsage);
  }
  if (options.output != "-" && tools::isSameFile(options.input, options.output)) {
    throw tools::Failure(fmt::format("cannot make a document of {}: the output is the file itself",
                                     tools::shown(options.input)),
                         tools::ExitUsage);
  }
}

void writePackage(const Host& host, const Options& options, SourceWave& wave,
                  const std::string& path) {
  pkg::QCFPackageFactory factory;
  const auto package =
      factory.createConformingPackage(path, options.type, true, nullptr, nullptr, nullptr);
  const auto file = package->getFile(kAudioEntry, false);
  file->setCompressionMethod(options.deflate ? pkg::CompressionDeflated : pkg::CompressionStored);
  const auto stream = file->open(std::ios::out, false);
  stream->exceptions(std::ios::badbit);  // a full disk must not go unnoticed
  tools::Progress progress("writing", static_cast<std::int64_t>(wave.size()), host.quiet,
                           tools::Progress::Unit::Bytes);
  std::int64_t done = 0;
  wave.copyTo([&](const char* bytes, std::size_t size) {
    stream->write(bytes, static_cast<std::streamsize>(size));
    progress.update(done += static_cast<std::int64_t>(size));
  });
  stream->close();
  package->endUpdate();
  package->close();
}

// What the importer says of the new document must be what the file says.
void verify(Host& host, const SourceWave& wave, const std::string& path) {
  const auto source = host.open(path);
  const hostkit::AudioInfo& info = source->info();
  const bool isSame = info.channels == wave.channels() && info.frames == wave.frames() &&
                      info.sampleRate == static_cast<float>(wave.sampleRate());
  if (!isSame) throw hostkit::Error("the importer finds another audio in it");
  if (info.frames > 0)
    readStretch(*source, path, {info.frames - 1, 1}, [](const auto&, auto, auto) {});
  source->close();
}

void run(Host& host, const Options& options) {
  checkOptions(options);
  SourceWave wave(options.input);
  tools::OutputFile output(host, options.output);
  try {
    writePackage(host, options, wave, output.path());
  } catch (pkg::PackageIOException<>& error) {
    throw output.failure(error.what());
  } catch (pkg::PackageException<>&) {
    throw output.failure("is the disk full?");
  }
  telling("make a document of", options.input, [&] { verify(host, wave, output.path()); });
  output.commit();
  if (wave.channels() > hostkit::kMostChannelsDelivered) {
    host.note(fmt::format("{}: the importer delivers the first {} of {} channels",
                          tools::shown(options.output), hostkit::kMostChannelsDelivered,
                          wave.channels()));
  }
}

}  // namespace

void addMake(tools::Command& program, Host& host) {
  tools::Command command = program.command("make", "A sound document from a WAV file");
  auto options = std::make_shared<Options>();
  command.option("IN.wav", options->input, "8, 16 or 24-bit integers, or 32-bit floats").required();
  command.option("OUT.qsnd", options->output, "The document to write; - is standard output")
      .required();
  command.flag("--deflate", options->deflate, "Compress the audio; stored by default");
  command.option("--type", options->type, "The document's type, application/x-qsnd by default")
      .typeName("TYPE");
  command.footer(
      "Examples:\n"
      "  qsndhost make song.wav new.qsnd\n"
      "  qsndhost make song.wav small.qsnd --deflate --type application/x-song");
  command.run([&host, options] { run(host, *options); });
}
