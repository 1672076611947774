#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "HostKit/AudioSource.h"
#include "HostKit/Bundle.h"

namespace hostkit {

// A document that an importer has opened in this process.
class Document final : public AudioSource {
public:
  // Opens the document at `path` and asks for its layout. Raises Error with the reason. The bundle
  // may go before.
  Document(const Bundle& bundle, const std::filesystem::path& path);
  // Closes it.
  ~Document() override;
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  const AudioInfo& info() const noexcept override { return fInfo; }

  std::int64_t reachableFrames() const noexcept override;
  // After an Error, what came before it is in the buffers.
  void read(std::int64_t position, std::uint32_t frames, float* const* buffers) override;
  void close() noexcept override;

  // Closes the file and lets it be opened again by reopen().
  void quiet();
  // Raises Error when the file cannot be opened any more.
  void reopen();

private:
  void open();
  void inform();

  std::shared_ptr<const Module> fModule;
  std::u16string fPath;
  void* fFileRef = nullptr;   // the importer's token
  void* fInstance = nullptr;  // the importer's, from its first answer until it is closed
  AudioInfo fInfo;
};

}  // namespace hostkit
