#include "Documents.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include <stdlib.h>
#include <zlib.h>

Scratch::Scratch() {
  std::string name = (std::filesystem::temp_directory_path() / "qsnd-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp");
  fFolder = name;
}

Scratch::~Scratch() {
  std::error_code ignored;
  std::filesystem::remove_all(fFolder, ignored);
}

std::string little(std::uint64_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i)
    text.push_back(static_cast<char>(value >> (8 * i)));
  return text;
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary);
  file << bytes;
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
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

void makeDeflatedDocument(const std::string& path, const std::string& wave) {
  const Scratch scratch;
  writeFile(scratch / "mimetype", "application/x-qsnd");
  writeFile(scratch / "Mixdown.wav", wave);
  outputOf("cd " + scratch.folder().string() +
           " && zip -q -X -0 made.zip mimetype && zip -q -X -9 made.zip Mixdown.wav");
  std::filesystem::copy_file(scratch / "made.zip", path,
                             std::filesystem::copy_options::overwrite_existing);
}

std::string outputOf(const std::string& command) {
  FILE* const pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
  std::string output;
  std::array<char, 4096> block;
  while (const auto size = fread(block.data(), 1, block.size(), pipe)) {
    output.append(block.data(), size);
  }
  if (pclose(pipe) != 0) throw std::runtime_error("failed: " + command);
  return output;
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
