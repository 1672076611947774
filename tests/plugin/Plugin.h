#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <dlfcn.h>

#include "BuiltBundle.h"
#include "HostRecords.h"
#include "MemorySource.h"

// The plug-in as a host has it: a loaded module, one entry, and records. Nothing of its own code is
// linked in here.
class Plugin {
public:
  // `module` is the path of the loadable file.
  explicit Plugin(const std::string& module = builtModule())
      : fLibrary(dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (fLibrary == nullptr) throw std::runtime_error(dlerror());
    fEntry = reinterpret_cast<Entry>(dlsym(fLibrary, "xImportEntry"));
    if (fEntry == nullptr) throw std::runtime_error("no entry");
  }
  ~Plugin() { dlclose(fLibrary); }
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  static std::string builtModule() { return builtBundle() + "/Contents/Linux/ImporterQSND.so"; }

  std::int32_t operator()(int selector, void* param1 = nullptr, void* param2 = nullptr) const {
    return fEntry(selector, nullptr, param1, param2);
  }
  const void* entry() const { return reinterpret_cast<const void*>(fEntry); }

private:
  using Entry = std::int32_t (*)(int, imStdParms*, void*, void*);

  void* fLibrary;
  Entry fEntry;
};

inline std::u16string widen(const std::string& ascii) {
  return {ascii.begin(), ascii.end()};
}

// What the info record tells, with fields that can be referred to.
struct FileInfo {
  int hasVideo = -1;
  int hasAudio = -1;
  std::uint32_t channelCount = 0;
  float sampleRate = 0;
  std::int32_t sampleFormat = 0;
  std::int64_t frameCount = 0;
  std::int32_t word194 = -1;
};

// One file of a host: its path, its slot for the instance, its reference.
struct HostFile {
  explicit HostFile(const Plugin& entry) : plugin(entry) {}
  ~HostFile() { close(); }
  HostFile(const HostFile&) = delete;
  HostFile& operator=(const HostFile&) = delete;

  std::int32_t open(const std::string& path) { return open(widen(path)); }
  std::int32_t open(const std::u16string& path) {
    imFileOpenRec8 record{};
    record.path = path.c_str();
    record.privateData = instance;
    const auto result = plugin(39, &reference, &record);
    instance = record.privateData;
    return result;
  }
  std::int32_t getInfo() {
    imFileInfoRec8 record{};
    record.privateData = instance;
    const auto result = plugin(37, nullptr, &record);
    instance = record.privateData;
    info = {record.hasVideo,     record.hasAudio,   record.channelCount, record.sampleRate,
            record.sampleFormat, record.frameCount, record.word194};
    return result;
  }
  std::int32_t read(std::int64_t position, std::uint32_t frames, ChannelBuffers& out) {
    imImportAudioRec7 record{};
    record.position = position;
    record.size = frames;
    record.buffers = out.pointers.data();
    record.privateData = instance;
    return plugin(25, reference, &record);
  }
  std::int32_t quiet() { return plugin(8, &reference, instance); }
  std::int32_t close() {
    const auto result = plugin(9, &reference, instance);
    instance = nullptr;
    return result;
  }

  const Plugin& plugin;
  void* reference = nullptr;
  void* instance = nullptr;
  FileInfo info;
};
