#include "Documents.h"

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

std::string storedPackage(const std::vector<Entry>& entries) {
  std::string package, directory;
  for (const auto& [name, content] : entries) {
    const auto crc =
        crc32(0, reinterpret_cast<const Bytef*>(content.data()), static_cast<uInt>(content.size()));
    const std::string sizes = little(content.size(), 4) + little(content.size(), 4);
    const std::string common = little(20, 2) + little(0, 2) + little(0, 2) + little(0, 2) +
                               little(0x5A21, 2) + little(crc, 4) + sizes + little(name.size(), 2);
    directory += "PK\1\2" + little(20, 2) + common + little(0, 2) + little(0, 2) + little(0, 2) +
                 little(0, 2) + little(0, 4) + little(package.size(), 4) + name;
    package += "PK\3\4" + common + little(0, 2) + name + content;
  }
  const std::string count = little(entries.size(), 2);
  return package + directory + "PK\5\6" + little(0, 4) + count + count +
         little(directory.size(), 4) + little(package.size(), 4) + little(0, 2);
}

std::string storedDocument(const std::string& wave) {
  return storedPackage({{"mimetype", "application/x-qsnd"}, {"Mixdown.wav", wave}});
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
