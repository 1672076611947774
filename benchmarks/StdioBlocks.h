#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

// What an import cannot do without: a seek and a read of a whole block through stdio, with its
// default buffer, wherever a request leaves the block in hand. In the calls that cost least: none
// to where the file stands, and else a relative one behind fflush, which is a single call into the
// system.
class StdioBlocks {
public:
  static constexpr std::size_t kBlock = 32768;  // what the importer asks of its stream, in bytes

  // The frames begin at byte `start` of the file.
  StdioBlocks(const std::string& path, std::int64_t start, std::size_t frameBytes)
      : fFile(std::fopen(path.c_str(), "rb"), std::fclose),
        fStart(start),
        fFrameBytes(frameBytes),
        fBlock(kBlock) {}

  // The frames at `position` and behind it in the block, and how many: 0 where nothing can be read.
  std::pair<const char*, std::size_t> from(std::int64_t position) {
    if (position < fFirst || position >= fFirst + static_cast<std::int64_t>(fFrames))
      readAt(position);
    const auto passed = static_cast<std::size_t>(position - fFirst);
    return {fBlock.data() + passed * fFrameBytes, fFrames - passed};
  }

private:
  void readAt(std::int64_t position) {
    const auto target =
        static_cast<off_t>(fStart + position * static_cast<std::int64_t>(fFrameBytes));
    if (const off_t here = ftello(fFile.get()); here != target) {
      std::fflush(fFile.get());
      fseeko(fFile.get(), target - here, SEEK_CUR);
    }
    fFirst = position;
    fFrames = std::fread(fBlock.data(), fFrameBytes, kBlock / fFrameBytes, fFile.get());
  }

  std::unique_ptr<std::FILE, int (*)(std::FILE*)> fFile;
  std::int64_t fStart;
  std::size_t fFrameBytes;
  std::vector<char> fBlock;
  std::int64_t fFirst = 0;
  std::size_t fFrames = 0;
};
