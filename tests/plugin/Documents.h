#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

// Sound documents for tests. WAV files and stored packages are put together byte by byte, deflated
// packages by Info-ZIP.

std::string little(std::uint64_t value, int bytes);

// A chunk with its header. No padding byte, whatever the size.
std::string chunk(const std::string& tag, const std::string& content,
                  std::optional<std::uint32_t> size = std::nullopt);

struct Wave {
  std::uint16_t tag = 1;
  std::uint16_t channels = 1;
  std::uint32_t rate = 44100;
  std::uint16_t bits = 16;
  std::optional<std::uint16_t> blockAlign;  // else as channels and bits have it
  std::string formatTail;                   // behind the first 16 bytes of the format chunk
  std::string beforeFormat, beforeData;     // whole chunks
  std::string data;
  std::optional<std::uint32_t> dataSize;  // else that of the data

  std::string formatChunk() const;
  std::string bytes() const;
};

struct Entry {
  std::string name;
  std::string content;                     // as it is stored
  int method = 0;                          // 8: `content` is a raw deflate stream
  std::optional<std::uint32_t> size = {};  // uncompressed, else that of the content
};

// A ZIP file of these entries, byte by byte.
std::string package(const std::vector<Entry>& entries);
// `bytes` as a raw deflate stream that is not ended: any block may follow.
std::string openDeflateStream(const std::string& bytes);
// A sound document: the type, then the audio, both stored.
std::string storedDocument(const std::string& wave);
// The same by Info-ZIP, the audio deflated.
void makeDeflatedDocument(const std::filesystem::path& path, const std::string& wave);

// `count` bytes without a pattern, always the same for a seed.
std::string noise(std::size_t count, std::uint32_t seed);
