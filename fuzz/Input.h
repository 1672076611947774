#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzz {

// What a fuzzer or a replay runs: one input, whatever its bytes. Each target defines it.
void run(const std::uint8_t* data, std::size_t size);

// Takes an input apart from its front. Behind its end come zeros and empty texts.
class Input {
public:
  Input(const std::uint8_t* data, std::size_t size) : fData(data), fEnd(data + size) {}

  bool atEnd() const { return fData == fEnd; }
  unsigned byte() { return atEnd() ? 0u : *fData++; }
  // A number below `count`, which is at most 256.
  unsigned below(unsigned count) { return byte() % count; }
  // At most `count` bytes.
  std::string bytes(std::size_t count) {
    const std::size_t taken = std::min(count, static_cast<std::size_t>(fEnd - fData));
    std::string text(reinterpret_cast<const char*>(fData), taken);
    fData += taken;
    return text;
  }
  std::string rest() { return bytes(static_cast<std::size_t>(fEnd - fData)); }

private:
  const std::uint8_t* fData;
  const std::uint8_t* fEnd;
};

}  // namespace fuzz
