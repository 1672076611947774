#pragma once

#include <string>

#include <gtest/gtest.h>

#include "Documents.h"
#include "Plugin.h"
#include "support/TempDir.h"

// Documents opened by the bundle, and what their tests share.

constexpr float kUntouched = ChannelBuffers::kUntouched;

// 16-bit samples that count from `first` on.
inline std::string counting(int first, int count) {
  std::string bytes;
  for (int i = first; i < first + count; ++i)
    bytes += little(static_cast<std::uint64_t>(i), 2);
  return bytes;
}

inline float sample16(int value) {
  return static_cast<float>(static_cast<std::int16_t>(value)) * 0x1p-15f;
}

class SoundDocument : public testing::Test {
protected:
  std::int32_t openBytes(const std::string& bytes) {
    return file.open(folder.write("sound.qsnd", bytes));
  }
  std::int32_t openWaveBytes(const std::string& bytes) { return openBytes(storedDocument(bytes)); }
  std::int32_t open(const Wave& wave) { return openWaveBytes(wave.bytes()); }
  std::int32_t openDeflated(const Wave& wave) {
    makeDeflatedDocument(folder / "deflated.qsnd", wave.bytes());
    return file.open((folder / "deflated.qsnd").string());
  }

  support::TempDir folder;
  Plugin plugin;
  HostFile file{plugin};
};
