#pragma once

#include <chrono>
#include <filesystem>
#include <vector>

#include "HostKit/AudioSource.h"
#include "HostKit/Bundle.h"
#include "HostKit/ChildProcess.h"

namespace hostkit {

// A document that an importer has opened in a process of its own. Whatever the importer does there,
// a crash, an endless loop, an exit, is an Error here.
class IsolatedDocument final : public AudioSource {
public:
  // Loads the bundle in `folder` and opens the document at `path`. `patience` is how long one
  // answer of the importer may take; zero for any time. Raises as Bundle and Document do, and when
  // the importer fails its process; so do all operations.
  IsolatedDocument(const std::filesystem::path& folder, const std::filesystem::path& path,
                   std::chrono::seconds patience);
  // Closes what close() has not: an importer keeps files on disk that only it can remove.
  ~IsolatedDocument() override;

  const AudioInfo& info() const noexcept override { return fInfo; }
  std::int64_t reachableFrames() const noexcept override { return fReachable; }
  void read(std::int64_t position, std::uint32_t frames, float* const* buffers) override;
  // Closes the document and unloads the bundle.
  void close() override;

private:
  ChildProcess fProcess;
  bool fIsOpen = false;
  AudioInfo fInfo;
  std::int64_t fReachable = 0;
};

// Bundle(folder).formats() in a process of its own.
std::vector<Format> isolatedFormats(const std::filesystem::path& folder,
                                    std::chrono::seconds patience);

}  // namespace hostkit
