#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "BuiltBundle.h"
#include "Documents.h"
#include "HostKit/Bundle.h"
#include "HostKit/Document.h"
#include "MemorySource.h"
#include "support/TempDir.h"

namespace {

// The reason and the result of what goes wrong; nothing where nothing does.
struct Problem {
  std::string reason;
  std::int32_t result;
  bool operator==(const Problem& other) const {
    return reason == other.reason && result == other.result;
  }
};

std::ostream& operator<<(std::ostream& stream, const Problem& problem) {
  return stream << problem.reason << ", " << problem.result;
}

template <class Action>
std::optional<Problem> problemOf(Action action) {
  try {
    action();
    return std::nullopt;
  } catch (const hostkit::Error& error) {
    return Problem{error.what(), error.result()};
  }
}

class HostKit : public testing::Test {
protected:
  std::string document(const std::string& data, std::uint16_t channels = 1) {
    Wave wave;
    wave.channels = channels;
    wave.data = data;
    return folder.write("sound.qsnd", storedDocument(wave.bytes()));
  }

  support::TempDir folder;
  hostkit::Bundle bundle{builtBundle()};
};

TEST_F(HostKit, ListsTheFormats) {
  const auto formats = bundle.formats();
  ASSERT_EQ(formats.size(), 1u);
  EXPECT_EQ(formats[0].type, "QSND");
  EXPECT_EQ(formats[0].flags, 0xE004u);
  EXPECT_EQ(formats[0].name, "Quillon Sound Document");
  EXPECT_EQ(formats[0].shortName, "QSND");
  EXPECT_EQ(formats[0].extensions, std::vector<std::string>{"qsnd"});
}

TEST_F(HostKit, ADocumentOutlivesItsBundle) {
  auto second = std::make_unique<hostkit::Bundle>(builtBundle());
  hostkit::Document sound(*second, document(little(0x4000, 2)));
  second.reset();
  ChannelBuffers out(1, 1);
  sound.read(0, 1, out.data());
  EXPECT_EQ(out[0][0], 0.5f);
}

TEST_F(HostKit, ChannelsThatAreNotDeliveredAreSilent) {
  hostkit::Document sound(bundle, document(std::string(160, '\x40'), 8));
  EXPECT_EQ(sound.info().channels, 8u);
  ChannelBuffers out(8, 10);
  sound.read(0, 10, out.data());
  EXPECT_NE(out[5][9], 0.0f);
  EXPECT_EQ(out[6], std::vector<float>(10, 0.0f));
  EXPECT_EQ(out[7], std::vector<float>(10, 0.0f));
}

TEST_F(HostKit, QuietAndReopenKeepTheDocument) {
  hostkit::Document sound(bundle, document(std::string(20, '\x40')));
  ChannelBuffers out(1, 1);
  sound.quiet();
  EXPECT_EQ(problemOf([&] { sound.read(0, 1, out.data()); }),
            (Problem{"there is no audio at that position", 1}));
  sound.reopen();
  EXPECT_FALSE(problemOf([&] { sound.read(0, 1, out.data()); }));
}

TEST_F(HostKit, SaysWhyADocumentDoesNotOpen) {
  const auto open = [&](const std::string& path) {
    return problemOf([&] { hostkit::Document(bundle, path); });
  };
  EXPECT_EQ(open((folder / "absent.qsnd").string()), (Problem{"no such file", 31}));
  EXPECT_EQ(open(folder.path().string()), (Problem{"it is a folder", 31}));
  EXPECT_EQ(open(folder.write("text.qsnd", "no package")),
            (Problem{"not a sound document, or a damaged one", 31}));
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(open((folder / "pipe").string()), (Problem{"it is not a regular file", 0}));
  EXPECT_EQ(open((folder / "\xFF.qsnd").string()),
            (Problem{"the file's name is not valid UTF-8", 0}));
}

TEST_F(HostKit, SaysWhyAudioCannotBeRead) {
  Wave wave;
  wave.data = "abcd";
  wave.dataSize = 100;
  hostkit::Document sound(bundle, folder.write("short.qsnd", storedDocument(wave.bytes())));
  ChannelBuffers out(1, 10);
  EXPECT_EQ(
      problemOf([&] { sound.read(0, 10, out.data()); }),
      (Problem{"the audio data ends too early, or could not be inflated into the cache folder",
               38}));
  EXPECT_EQ(problemOf([&] { sound.read(50, 10, out.data()); }),
            (Problem{"there is no audio at that position", 1}));
}

TEST_F(HostKit, SaysWhyABundleDoesNotLoad) {
  const auto load = [](const std::filesystem::path& path) {
    return problemOf([&] { hostkit::Bundle{path}; }).value_or(Problem{"loaded", 0}).reason;
  };
  EXPECT_EQ(load(folder / "Absent.bundle"),
            "the importer bundle is missing: No such file or directory");
  std::filesystem::create_directories(folder / "Empty.bundle/Contents/Linux");
  EXPECT_EQ(load(folder / "Empty.bundle").find("the importer cannot be loaded: "), 0u);
}

TEST_F(HostKit, OnlyFramesBelowTwoGigabytesAreReachable) {
  Wave wave;
  wave.channels = 2;
  wave.data = "abcd";
  wave.dataSize = 0xFFFFFFF0u;
  hostkit::Document sound(bundle, folder.write("long.qsnd", storedDocument(wave.bytes())));
  EXPECT_EQ(sound.info().frames, 0x3FFFFFFC);
  EXPECT_EQ(sound.reachableFrames(), 0x20000000);
}

TEST_F(HostKit, NoFrameIsOutOfReachWhereTheFormatOfTheSamplesIsUnknown) {
  Wave wave;
  wave.tag = 3;
  wave.bits = 64;
  wave.data = std::string(800, 'x');
  hostkit::Document sound(bundle, folder.write("doubles.qsnd", storedDocument(wave.bytes())));
  EXPECT_EQ(sound.info().frames, 100);
  EXPECT_EQ(sound.reachableFrames(), 100);
}

}  // namespace
