#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "Documents.h"
#include "Plugin.h"

// The whole session of a host with one document, as numbers: nothing is allocated between its
// calls, so that a test can have any allocation in it fail.
class HostSession {
public:
  static constexpr std::uint32_t kFrames = 64;      // of a read
  static constexpr std::int64_t kLength = 10000;    // of the document, two channels of 16 bits
  static constexpr std::int32_t kNotAsked = -1000;  // instead of a result

  // One selector and what came back.
  struct Answer {
    int selector;
    std::int32_t result;
  };

  // The audio of the document.
  static std::string wave() {
    Wave wave;
    wave.channels = 2;
    wave.data = noise(4 * kLength, 1);
    return wave.bytes();
  }

  HostSession(const Plugin& entry, const std::string& path, bool reopens)
      : fPlugin(entry), fPath(widen(path)), fReopens(reopens), fSamples(wave().substr(44)) {}

  // Goes the whole way; a step that an answer forbids is left out. Every instance is closed.
  void run() noexcept {
    imImportInfoRec info{};
    note(0, fPlugin(0, &info));
    note(14, fPlugin(14, nullptr, &fFormat));
    openAndServe();
    if (fInstance != nullptr) note(8, fPlugin(8, &fReference, fInstance));
    if (fReopens) {
      openAndServe();
    } else {
      open();
    }
    note(9, fPlugin(9, &fReference, fInstance));
    fInstance = nullptr;
    note(1, fPlugin(1));
  }

  const Answer* begin() const { return fAnswers.data(); }
  const Answer* end() const { return fAnswers.data() + fCount; }
  const imIndFormatRec& format() const { return fFormat; }
  // Every sample of every read that gave 0 was that of the document.
  bool servedRight() const { return fServedRight; }
  // New instances that an exception in selector 39 left without an owner.
  int instancesLost() const { return fLost; }
  // A record or a reference was not left as the answer has it.
  bool recordsRight() const { return fRecordsRight; }

private:
  void note(int selector, std::int32_t result) { fAnswers[fCount++] = {selector, result}; }

  std::int32_t open() {
    imFileOpenRec8 record{};
    record.path = fPath.c_str();
    record.privateData = fInstance;
    void* const before = fReference;
    const std::int32_t result = fPlugin(39, &fReference, &record);
    note(39, result);
    if (fInstance == nullptr && result == 3) ++fLost;
    const bool isOwned = fInstance != nullptr || result == 0;
    fRecordsRight = fRecordsRight && (record.privateData != nullptr) == isOwned &&
                    (result == 0 ? fReference != nullptr : fReference == before);
    if (fInstance != nullptr) fRecordsRight = fRecordsRight && record.privateData == fInstance;
    fInstance = record.privateData;
    return result;
  }

  void openAndServe() {
    if (open() != 0) return;
    imFileInfoRec8 record{};
    record.privateData = fInstance;
    const std::int32_t result = fPlugin(37, nullptr, &record);
    note(37, result);
    if (result == 0) {
      fRecordsRight = fRecordsRight && record.channelCount == 2 && record.frameCount == kLength &&
                      record.sampleFormat == 3;
    }
    fNext = -1;
    for (const std::int64_t position : {std::int64_t{0}, kLength / 2, std::int64_t{-1},
                                        kLength - 10, std::int64_t{100}, kLength}) {
      serve(position);
    }
  }

  void serve(std::int64_t position) {
    for (auto& channel : fOut)
      channel.fill(kUntouched);
    float* buffers[] = {fOut[0].data(), fOut[1].data()};
    imImportAudioRec7 record{};
    record.position = position;
    record.size = kFrames;
    record.buffers = buffers;
    record.privateData = fInstance;
    const std::int32_t result = fPlugin(25, fReference, &record);
    note(25, result);
    if (result != 0) return;
    const std::int64_t from = position < 0 ? fNext : position;
    fNext = from < 0 ? from : std::min(from + kFrames, kLength);
    if (from >= 0) fServedRight = fServedRight && isAudioFrom(from);
  }

  bool isAudioFrom(std::int64_t first) const {
    for (std::int64_t i = 0; i < kFrames; ++i) {
      for (std::size_t channel = 0; channel < 2; ++channel) {
        if (fOut[channel][static_cast<std::size_t>(i)] != sample(first + i, channel)) return false;
      }
    }
    return true;
  }
  float sample(std::int64_t frame, std::size_t channel) const {
    if (frame >= kLength) return 0;
    const std::size_t at = static_cast<std::size_t>(frame) * 4 + channel * 2;
    const int low = static_cast<unsigned char>(fSamples[at]);
    const int value = low + 256 * static_cast<signed char>(fSamples[at + 1]);
    return static_cast<float>(value) / 32768;
  }

  static constexpr float kUntouched = 77;

  const Plugin& fPlugin;
  const std::u16string fPath;
  const bool fReopens;
  const std::string fSamples;

  void* fReference = nullptr;
  void* fInstance = nullptr;
  imIndFormatRec fFormat{};
  std::array<std::array<float, kFrames>, 2> fOut{};
  std::int64_t fNext = -1;
  std::array<Answer, 32> fAnswers{};
  std::size_t fCount = 0;
  int fLost = 0;
  bool fServedRight = true;
  bool fRecordsRight = true;
};
