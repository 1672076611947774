#include "HostKit/Document.h"

#include <algorithm>
#include <fstream>
#include <vector>

#include "HostKit/Module.h"
#include "HostKit/Selectors.h"
#include "qvacore/Unicode.h"

namespace hostkit {
namespace {

std::u16string pathForImporter(const std::filesystem::path& path) {
  const std::string bytes = path.string();
  std::u16string units = qvacore::utility::UTF8to16(bytes);
  const bool roundTrip = qvacore::utility::UTF16to8(units.c_str()) == bytes;
  if (!roundTrip) throw Error("the file's name is not valid UTF-8");
  return units;
}

// An importer does not tell why it could not open a file. The plain reasons can be seen from
// outside.
std::string whyNotOpened(const std::filesystem::path& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (status.type() == std::filesystem::file_type::not_found) return "no such file";
  if (error) return error.message();
  if (std::filesystem::is_directory(status)) return "it is a folder";
  if (!std::ifstream(path)) return "permission denied";
  return "not a sound document, or a damaged one";
}

// 0 where the number does not tell.
std::int64_t bytesPerSample(std::int32_t sampleFormat) {
  switch (sampleFormat) {
    case 2:
      return 1;
    case 3:
      return 2;
    case 4:
      return 3;
    case 6:
      return 4;
    default:
      return 0;
  }
}

std::string whyNotRead(std::int32_t result) {
  switch (result) {
    case ResultNoAudio:
      return "there is no audio at that position";
    case ResultNothingRead:
      return "the audio data ends too early, or could not be inflated into the cache folder";
    case -1:
      return "the audio data cannot be read";
    default:
      return "the importer failed with result " + std::to_string(result);
  }
}

}  // namespace

Document::Document(const Bundle& bundle, const std::filesystem::path& path)
    : fModule(bundle.fModule), fPath(pathForImporter(path)) {
  try {
    open();
    inform();
  } catch (...) {
    close();
    throw;
  }
}

Document::~Document() {
  close();
}

void Document::open() {
  // An importer that opens a pipe waits for who writes to it, and cannot seek there.
  const std::filesystem::path path = qvacore::utility::UTF16to8(fPath.c_str());
  if (std::error_code error; std::filesystem::is_other(path, error)) {
    throw Error("it is not a regular file");
  }
  imFileOpenRec8 record{};
  record.path = fPath.c_str();
  record.privateData = fInstance;
  const auto result = fModule->call(SelectorOpenFile8, &fFileRef, &record);
  fInstance = record.privateData;
  if (result == ResultSuccess) return;
  throw Error(whyNotOpened(path), result);
}

void Document::inform() {
  imFileInfoRec8 record{};
  record.privateData = fInstance;
  const auto result = fModule->call(SelectorGetInfo8, nullptr, &record);
  fInstance = record.privateData;
  if (result != ResultSuccess) throw Error("the importer does not tell the layout", result);
  fInfo = {record.channelCount, record.sampleRate, record.sampleFormat, record.frameCount};
}

std::int64_t Document::reachableFrames() const noexcept {
  constexpr std::int64_t kMostBytes = 0x7FFFFFFF;
  const std::int64_t frameBytes = std::int64_t{fInfo.channels} * bytesPerSample(fInfo.sampleFormat);
  return frameBytes == 0 ? fInfo.frames : std::min(fInfo.frames, kMostBytes / frameBytes + 1);
}

void Document::close() noexcept {
  if (fInstance != nullptr) fModule->call(SelectorCloseFile, &fFileRef, fInstance);
  fInstance = nullptr;
}

void Document::read(std::int64_t position, std::uint32_t frames, float* const* buffers) {
  for (std::size_t channel = kMostChannelsDelivered; channel < fInfo.channels; ++channel) {
    std::fill_n(buffers[channel], frames, 0.0f);
  }
  imImportAudioRec7 record{};
  record.position = position;
  record.size = frames;
  record.buffers =
      const_cast<float**>(buffers);  // the record is the host's; importers only read the array
  record.privateData = fInstance;
  const auto result = fModule->call(SelectorImportAudio7, fFileRef, &record);
  if (result != ResultSuccess) throw Error(whyNotRead(result), result);
}

void Document::quiet() {
  fModule->call(SelectorQuietFile, &fFileRef, fInstance);
}

void Document::reopen() {
  open();
  inform();
}

}  // namespace hostkit
