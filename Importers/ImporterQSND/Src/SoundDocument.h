#pragma once

#include <cstdint>
#include <ios>
#include <string>

#include <boost/shared_ptr.hpp>

#include "package/QCFPackage.h"

namespace ImporterQSND {

// The audio inside a sound document. The fields below filePath mean something while isOpen.
struct SoundDocumentState {
  bool isOpen = false;
  std::u16string filePath;  // as the host gave it
  std::uint32_t channelCount = 0;
  float sampleRate = 0;  // hertz
  std::uint32_t bytesPerSample = 0;
  std::int64_t frameCount = 0;
  // Destroyed from the last to the first: nothing outlives what it reads through.
  boost::shared_ptr<pkg::IPackage<>> package;
  pkg::SPRefType<pkg::IPkgFile<>> mixdownFile;
  boost::shared_ptr<pkg::IPkgStream<>> audioStream;
  std::iostream::pos_type audioDataStart = 0;  // the first sample byte
};

}  // namespace ImporterQSND
