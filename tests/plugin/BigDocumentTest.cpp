#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Documents.h"
#include "Plugin.h"
#include "support/TempDir.h"

// Documents of gigabytes, most of it holes that take no room on the disk.

namespace {

constexpr std::int64_t kHeader = 30 + 11;  // the local header and the name Mixdown.wav
constexpr std::int64_t kAudio = kHeader + 44;

class SparseFile {
public:
  explicit SparseFile(const std::string& path)
      : fDescriptor(open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600)) {}
  ~SparseFile() { close(fDescriptor); }
  SparseFile(const SparseFile&) = delete;
  SparseFile& operator=(const SparseFile&) = delete;

  void write(std::int64_t offset, const std::string& bytes) const {
    if (pwrite(fDescriptor, bytes.data(), bytes.size(), offset) !=
        static_cast<ssize_t>(bytes.size())) {
      throw std::runtime_error("cannot write a sparse file");
    }
  }

private:
  int fDescriptor;
};

std::string entryFields(std::uint32_t size) {
  return little(45, 2) + little(0, 2) + little(0, 2) + little(0, 4) + little(0, 4) +
         little(size, 4) + little(size, 4) + little(11, 2);
}

std::string centralHeader(std::uint32_t size, const std::string& extra) {
  return "PK\1\2" + little(45, 2) + entryFields(size) + little(extra.size(), 2) + little(0, 2) +
         little(0, 2) + little(0, 2) + little(0, 4) + little(0, 4) + "Mixdown.wav" + extra;
}

std::string endRecord(std::uint32_t directorySize, std::uint32_t directoryOffset) {
  return "PK\5\6" + little(0, 4) + little(1, 2) + little(1, 2) + little(directorySize, 4) +
         little(directoryOffset, 4) + little(0, 2);
}

// The headers of an entry with `dataSize` bytes of samples, at the front of the file.
std::uint32_t writeFront(const SparseFile& file, Wave wave, std::uint32_t dataSize) {
  wave.dataSize = dataSize;
  const auto size = static_cast<std::uint32_t>(44 + dataSize);
  file.write(0, "PK\3\4" + entryFields(size) + little(0, 2) + "Mixdown.wav" + wave.bytes());
  return size;
}

TEST(BigDocument, FramesAreServedAsFarAsPositionsReach) {
  const support::TempDir folder;
  const std::string path = (folder / "big.qsnd").string();
  constexpr std::uint32_t kData = 3900000000u;
  {
    const SparseFile file(path);
    Wave wave;
    wave.bits = 8;
    const std::uint32_t size = writeFront(file, wave, kData);
    file.write(kAudio + 5, "\x40");
    file.write(kAudio + 2000000000, "\xC0");
    file.write(kAudio + 0x7FFFFFFF, "\xFF\xFE");
    const std::string directory = centralHeader(size, "");
    const std::uint32_t offset = static_cast<std::uint32_t>(kHeader) + size;
    file.write(offset, directory + endRecord(static_cast<std::uint32_t>(directory.size()), offset));
  }
  const Plugin plugin;
  HostFile file(plugin);
  ASSERT_EQ(file.open(path), 0);
  ASSERT_EQ(file.getInfo(), 0);
  EXPECT_EQ(file.info.frameCount, std::int64_t{kData});
  const auto sampleAt = [&](std::int64_t position) {
    ChannelBuffers out(1, 1);
    EXPECT_EQ(file.read(position, 1, out), 0);
    return out[0][0];
  };
  EXPECT_EQ(sampleAt(5), -0.5f);
  EXPECT_EQ(sampleAt(2000000000), 0.5f);
  EXPECT_EQ(sampleAt(0x7FFFFFFF), 127.0f / 128.0f);
  // The block that begins at the last position that fits holds the frames behind it too.
  EXPECT_EQ(sampleAt(0x80000000ll), 126.0f / 128.0f);
  // A block of its own it cannot begin: the position wraps to one far before the audio.
  EXPECT_EQ(sampleAt(5), -0.5f);
  ChannelBuffers out(1, 1);
  EXPECT_EQ(file.read(0x80000000ll, 1, out), 38);
  EXPECT_EQ(out[0][0], ChannelBuffers::kUntouched);
  file.quiet();
  ASSERT_EQ(file.open(path), 0);
  EXPECT_EQ(sampleAt(2000000000), 0.5f);
}

TEST(BigDocument, ADirectoryAboveFourGigabytesGives31) {
  const support::TempDir folder;
  const std::string path = (folder / "huge.qsnd").string();
  {
    const SparseFile file(path);
    const std::uint32_t size = writeFront(file, Wave(), 1000);
    const std::int64_t offset = 4400000000ll;
    const std::string directory = centralHeader(size, "");
    const std::string end64 = "PK\6\6" + little(44, 8) + little(45, 2) + little(45, 2) +
                              little(0, 4) + little(0, 4) + little(1, 8) + little(1, 8) +
                              little(directory.size(), 8) +
                              little(static_cast<std::uint64_t>(offset), 8);
    const auto end64Offset = static_cast<std::uint64_t>(offset) + directory.size();
    const std::string locator = "PK\6\7" + little(0, 4) + little(end64Offset, 8) + little(1, 4);
    file.write(offset, directory + end64 + locator + endRecord(0xFFFFFFFF, 0xFFFFFFFF));
  }
  const Plugin plugin;
  HostFile file(plugin);
  EXPECT_EQ(file.open(path), 31);
}

}  // namespace
