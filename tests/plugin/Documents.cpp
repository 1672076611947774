#include "Documents.h"

#include <cstdlib>
#include <random>

#include <zlib.h>

#include "support/Run.h"
#include "support/TempDir.h"

std::string little(std::uint64_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i)
    text.push_back(static_cast<char>(value >> (8 * i)));
  return text;
}

std::string chunk(const std::string& tag, const std::string& content,
                  std::optional<std::uint32_t> size) {
  return tag + little(size.value_or(static_cast<std::uint32_t>(content.size())), 4) + content;
}

std::string Wave::formatChunk() const {
  const unsigned frame = channels * (bits / 8u);
  return chunk("fmt ", little(tag, 2) + little(channels, 2) + little(rate, 4) +
                           little(rate * frame, 4) + little(blockAlign.value_or(frame), 2) +
                           little(bits, 2) + formatTail);
}

std::string Wave::bytes() const {
  const std::string content =
      "WAVE" + beforeFormat + formatChunk() + beforeData + chunk("data", data, dataSize);
  return chunk("RIFF", content);
}

std::string package(const std::vector<Entry>& entries) {
  std::string files, directory;
  for (const Entry& entry : entries) {
    const auto size = static_cast<std::uint32_t>(entry.content.size());
    const auto crc = crc32(0, reinterpret_cast<const Bytef*>(entry.content.data()), size);
    const std::string common = little(20, 2) + little(0, 2) +
                               little(static_cast<std::uint64_t>(entry.method), 2) + little(0, 2) +
                               little(0x5A21, 2) + little(crc, 4) + little(size, 4) +
                               little(entry.size.value_or(size), 4) + little(entry.name.size(), 2);
    directory += "PK\1\2" + little(20, 2) + common + little(0, 2) + little(0, 2) + little(0, 2) +
                 little(0, 2) + little(0, 4) + little(files.size(), 4) + entry.name;
    files += "PK\3\4" + common + little(0, 2) + entry.name + entry.content;
  }
  const std::string count = little(entries.size(), 2);
  return files + directory + "PK\5\6" + little(0, 4) + count + count + little(directory.size(), 4) +
         little(files.size(), 4) + little(0, 2);
}

std::string openDeflateStream(const std::string& bytes) {
  z_stream stream{};
  if (deflateInit2(&stream, 9, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) std::abort();
  std::string compressed(bytes.size() + 1000, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = reinterpret_cast<Bytef*>(compressed.data());
  stream.avail_out = static_cast<uInt>(compressed.size());
  if (deflate(&stream, Z_FULL_FLUSH) != Z_OK) std::abort();
  compressed.resize(stream.total_out);
  deflateEnd(&stream);
  return compressed;
}

std::string storedDocument(const std::string& wave) {
  return package({{"mimetype", "application/x-qsnd"}, {"Mixdown.wav", wave}});
}

void makeDeflatedDocument(const std::filesystem::path& path, const std::string& wave) {
  const support::TempDir folder;
  folder.write("mimetype", "application/x-qsnd");
  folder.write("Mixdown.wav", wave);
  support::mustRun({{"zip", "-q", "-X", "-0", "made.zip", "mimetype"}, {}, folder.path()});
  support::mustRun({{"zip", "-q", "-X", "-9", "made.zip", "Mixdown.wav"}, {}, folder.path()});
  std::filesystem::copy_file(folder / "made.zip", path,
                             std::filesystem::copy_options::overwrite_existing);
}

std::string noise(std::size_t count, std::uint32_t seed) {
  std::mt19937 random(seed);
  std::string bytes;
  bytes.reserve(count + 4);
  while (bytes.size() < count)
    bytes += little(random(), 4);
  bytes.resize(count);
  return bytes;
}
