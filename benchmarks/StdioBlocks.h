#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

// A file through stdio, with its default buffer, read at positions in the calls that cost least: no
// seek to where the file stands, and else a relative one behind fflush, which is a single call into
// the system.
class StdioFile {
public:
  explicit StdioFile(const std::string& path)
      : fFile(std::fopen(path.c_str(), "rb"), std::fclose) {}

  // Returns how many bytes came.
  std::size_t read(std::int64_t offset, char* bytes, std::size_t size) {
    const auto target = static_cast<off_t>(offset);
    if (const off_t here = ftello(fFile.get()); here != target) {
      std::fflush(fFile.get());
      fseeko(fFile.get(), target - here, SEEK_CUR);
    }
    return std::fread(bytes, 1, size, fFile.get());
  }

private:
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> fFile;
};

// What an import cannot do without: a seek and a read of a whole block wherever a request leaves
// the block in hand.
class Blocks {
public:
  static constexpr std::size_t kBlock = 32768;  // what the importer asks of its stream, in bytes

  // Reads bytes from an offset behind the first frame; returns how many came.
  using Read = std::function<std::size_t(std::int64_t offset, char* bytes, std::size_t size)>;

  Blocks(Read read, std::size_t frameBytes)
      : fRead(std::move(read)), fFrameBytes(frameBytes), fBlock(kBlock) {}

  // The frames at `position` and behind it in the block, and how many: 0 where nothing can be read.
  std::pair<const char*, std::size_t> from(std::int64_t position) {
    if (position < fFirst || position >= fFirst + static_cast<std::int64_t>(fFrames)) {
      fFirst = position;
      fFrames = fRead(position * static_cast<std::int64_t>(fFrameBytes), fBlock.data(),
                      kBlock / fFrameBytes * fFrameBytes) /
                fFrameBytes;
    }
    const auto passed = static_cast<std::size_t>(position - fFirst);
    return {fBlock.data() + passed * fFrameBytes, fFrames - passed};
  }

private:
  Read fRead;
  std::size_t fFrameBytes;
  std::vector<char> fBlock;
  std::int64_t fFirst = 0;
  std::size_t fFrames = 0;
};
