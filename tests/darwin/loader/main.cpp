#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include <dlfcn.h>

#include "HostRecords.h"
#include "Image.h"
#include "Platform.h"

namespace {

using Entry = std::int32_t (*)(int selector, imStdParms*, void* param1, void* param2);

Entry entry = nullptr;

std::int32_t call(int selector, void* param1, void* param2) {
  const std::int32_t result = entry(selector, nullptr, param1, param2);
  std::printf("selector %d: %d\n", selector, static_cast<int>(result));
  return result;
}

void printSamples(const imFileInfoRec8& info, void* instance) {
  const auto frames = static_cast<std::uint32_t>(info.frameCount);
  std::vector<std::vector<float>> channels(info.channelCount, std::vector<float>(frames));
  std::vector<float*> buffers;
  for (std::vector<float>& channel : channels)
    buffers.push_back(channel.data());
  imImportAudioRec7 audio{};
  audio.size = frames;
  audio.buffers = buffers.data();
  audio.privateData = instance;
  if (call(25, nullptr, &audio) != 0) return;
  for (std::uint32_t frame = 0; frame < frames; ++frame) {
    for (std::uint32_t channel = 0; channel < info.channelCount; ++channel)
      std::printf("%s%.9g", channel == 0 ? "" : " ", static_cast<double>(channels[channel][frame]));
    std::printf("\n");
  }
}

void importDocument(const char* path) {
  std::u16string hostPath(path, path + std::strlen(path));
  imFileOpenRec8 file{};
  file.path = hostPath.c_str();
  void* fileRef = nullptr;
  if (call(39, &fileRef, &file) != 0) return;
  imFileInfoRec8 info{};
  info.privateData = file.privateData;
  if (call(37, nullptr, &info) == 0) {
    std::printf("channels %u rate %g frames %lld\n", info.channelCount,
                static_cast<double>(info.sampleRate), static_cast<long long>(info.frameCount));
    printSamples(info, file.privateData);
  }
  call(8, &fileRef, file.privateData);
  call(9, &fileRef, file.privateData);
}

}  // namespace

// loader MODULE DOCUMENT: binds the bundle's module to this process, drives its selectors with an
// ASCII path and prints what they answer.
int main(int argc, char** argv) try {
  if (argc != 3) throw std::runtime_error("usage: loader MODULE DOCUMENT");
  if (dlopen("libz.so.1", RTLD_NOW | RTLD_GLOBAL) == nullptr) throw std::runtime_error(dlerror());
  const Image image(argv[1], resolvePlatformName);
  image.registerUnwindTables();
  image.runInitialisers();
  entry = reinterpret_cast<Entry>(image.symbol("xImportEntry"));

  imImportInfoRec importInfo{};
  call(0, &importInfo, nullptr);
  imIndFormatRec format{};
  call(14, nullptr, &format);
  std::printf("extension %s\n", format.extensions);
  call(14, reinterpret_cast<void*>(1), &format);
  importDocument(argv[2]);
  call(57, nullptr, nullptr);
  call(1, nullptr, nullptr);
  return 0;
} catch (const std::exception& exception) {
  std::fprintf(stderr, "loader: %s\n", exception.what());
  return 2;
}
