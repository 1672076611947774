#pragma once

#include <cstdint>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

// A WAV file that is to become the audio of a sound document. The importer finds its way through
// the file by a simpler rule than other readers do: it skips no padding bytes, and wants the format
// before the data. A file in which that leads astray is written with its chunks in another order:
// format, data, then all the others.
class SourceWave {
public:
  // Reads the chunks of the file at `path`. Raises tools::Failure with the reason where the
  // importer could not read its audio, or would read it as something else.
  explicit SourceWave(const std::string& path);

  std::uint32_t channels() const noexcept { return fChannels; }
  std::uint32_t sampleRate() const noexcept { return fRate; }
  std::int64_t frames() const noexcept { return fFrames; }
  // Bytes that copyTo() gives.
  std::uint64_t size() const noexcept;
  // Gives the file's bytes piece by piece. Raises tools::Failure when they cannot be read.
  void copyTo(const std::function<void(const char* bytes, std::size_t size)>& take);

private:
  struct Chunk {
    std::uint32_t tag;
    std::uint64_t header;  // the offset of its eight bytes; the content follows
    std::uint64_t size;    // of the content
  };
  // What the copy is made of: a run of the file, after some bytes of its own.
  struct Piece {
    std::string before;
    std::uint64_t offset;
    std::uint64_t size;
  };

  [[noreturn]] void refuse(const std::string& reason) const;
  std::string bytesAt(std::uint64_t offset, std::size_t size);
  void readChunks();
  const Chunk& chunk(std::uint32_t tag, const char* reason) const;
  void readFormat(const Chunk& format);
  void checkData(const Chunk& data) const;
  bool isStraight(const Chunk& format, const Chunk& data);
  void arrange(const Chunk& format, const Chunk& data);

  std::string fPath;
  std::ifstream fFile;
  std::uint64_t fSize = 0;
  std::vector<Chunk> fChunks;
  std::vector<Piece> fPieces;
  std::uint32_t fChannels = 0;
  std::uint32_t fRate = 0;
  std::uint32_t fFrameBytes = 0;
  std::int64_t fFrames = 0;
};
