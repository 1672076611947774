#include <ostream>

#include <gtest/gtest.h>

#include "package/QCFPackage.h"

#include "interop/Listing.h"
#include "support/Run.h"
#include "support/TempDir.h"

using support::TempDir;

namespace {

constexpr auto kIn = std::ios_base::in;

// Some files, large and small, in a folder.
void makeTree(const TempDir& folder) {
  std::filesystem::create_directories(folder / "tree/sub/deep");
  folder.write("tree/mimetype", "application/x-test");
  folder.write("tree/empty", "");
  std::string text;
  for (int i = 0; i < 20000; ++i)
    text += std::to_string(i * 7919 % 10007) + (i % 10 == 0 ? "\n" : " ");
  folder.write("tree/sub/text", text);
  std::string noise;
  unsigned state = 1;
  for (int i = 0; i < 50000; ++i) {
    state = state * 1664525 + 1013904223;
    noise += static_cast<char>(state >> 24);
  }
  folder.write("tree/sub/deep/noise", noise);
  folder.write("tree/sub/\xC3\xA4\xE2\x82\xAC", "a name beyond ASCII");
}

// A way to make a.zip of the tree.
struct Writer {
  const char* name;
  std::vector<std::vector<std::string>> commands;
  std::string inputOfLast = {};

  friend std::ostream& operator<<(std::ostream& out, const Writer& writer) {
    return out << writer.name;
  }
};

const char* const kPython = R"(
import os, sys, zipfile
method, force, streamed = (int(argument) for argument in sys.argv[1:])
class Pipe:
    def __init__(self, name): self.file = open(name, 'wb')
    def write(self, data): return self.file.write(data)
    def flush(self): self.file.flush()
target = Pipe('../a.zip') if streamed else '../a.zip'
with zipfile.ZipFile(target, 'w', method) as package:
    for folder, folders, files in sorted(os.walk('.')):
        for name in sorted(files):
            path = os.path.join(folder, name)[2:]
            with package.open(zipfile.ZipInfo(path) if method == 0 else path, 'w',
                              force_zip64=bool(force)) as out, open(path, 'rb') as data:
                out.write(data.read())
)";

const std::vector<Writer> kWriters = {
    {"InfoZip", {{"zip", "-qr", "../a.zip", "."}}},
    {"InfoZipStored", {{"zip", "-qr0", "../a.zip", "."}}},
    {"InfoZipBestWithoutExtras", {{"zip", "-qr9X", "../a.zip", "."}}},
    {"InfoZipWithoutDirectories", {{"zip", "-qrD", "../a.zip", "."}}},
    {"InfoZipDescriptors", {{"zip", "-qrfd", "../a.zip", "."}}},
    {"InfoZipTypeFirst",
     {{"zip", "-qX0", "../a.zip", "mimetype"}, {"zip", "-qrX", "../a.zip", ".", "-x", "mimetype"}}},
    {"InfoZipWithComment",
     {{"zip", "-qr", "../a.zip", "."}, {"zip", "-qz", "../a.zip"}},
     "a comment\n"},
    {"Libarchive", {{"bsdtar", "--format", "zip", "-cf", "../a.zip", "."}}},
    {"LibarchiveStored",
     {{"bsdtar", "--format", "zip", "--options", "zip:compression=store", "-cf", "../a.zip", "."}}},
    {"SevenZip", {{"7z", "a", "-tzip", "-bd", "-y", "../a.zip", "."}}},
    {"PythonStored", {{"python3", "-c", kPython, "0", "0", "0"}}},
    {"PythonDeflated", {{"python3", "-c", kPython, "8", "0", "0"}}},
    {"PythonZip64", {{"python3", "-c", kPython, "8", "1", "0"}}},
    {"PythonStreamed", {{"python3", "-c", kPython, "8", "0", "1"}}},
};

class OtherWriters : public testing::TestWithParam<Writer> {
protected:
  void SetUp() override {
    makeTree(fFolder);
    const Writer& writer = GetParam();
    for (std::size_t i = 0; i < writer.commands.size(); ++i) {
      const bool last = i + 1 == writer.commands.size();
      support::mustRun(
          {writer.commands[i], last ? writer.inputOfLast : std::string(), fFolder / "tree", {}});
    }
  }
  std::string path() const { return (fFolder / "a.zip").string(); }

  TempDir fFolder;
};

std::string writerName(const testing::TestParamInfo<Writer>& info) {
  return info.param.name;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(All, OtherWriters, testing::ValuesIn(kWriters), writerName);

TEST_P(OtherWriters, MakePackagesThatAreReadByteForByte) {
  const auto package = pkg::QCFPackageFactory().openPackage(path(), kIn, nullptr, nullptr, nullptr);
  const interop::Listing ours = interop::listByWalking(*package);
  const interop::Listing theirs = interop::listByPython(path());
  ASSERT_EQ(theirs.size(), ours.size());
  int files = 0;
  for (std::size_t i = 0; i < ours.size(); ++i) {
    SCOPED_TRACE(theirs[i].name);
    EXPECT_EQ(theirs[i].name, ours[i].name);
    EXPECT_EQ(theirs[i].size, ours[i].size);
    EXPECT_EQ(theirs[i].crc, ours[i].crc);
    EXPECT_TRUE(theirs[i].readable);
    EXPECT_TRUE(ours[i].readable);
    EXPECT_EQ(theirs[i].data, ours[i].data);
    if (ours[i].name.back() == '/') continue;
    EXPECT_EQ(fFolder.read("tree/" + ours[i].name), ours[i].data);
    ++files;
  }
  EXPECT_EQ(5, files);
}

TEST(OtherWritersOnce, ATypeThatIsWrittenFirstAndStoredConforms) {
  const TempDir folder;
  folder.write("mimetype", "application/x-test");
  folder.write("b", "b");
  support::mustRun({{"zip", "-qX0", "a.zip", "mimetype"}, {}, folder.path(), {}});
  support::mustRun({{"zip", "-qX", "a.zip", "b"}, {}, folder.path(), {}});
  const auto package = pkg::QCFPackageFactory().openPackage((folder / "a.zip").string(), kIn,
                                                            nullptr, nullptr, nullptr);
  EXPECT_EQ(0, package->checkConformance());
  EXPECT_EQ("application/x-test", package->getMIMEType());
}

TEST(OtherWritersOnce, ADirectoryThatOnlyZip64RecordsLeadToIsRefused) {
  const TempDir folder;
  folder.write("b", "b");
  support::mustRun({{"zip", "-qfz", "a.zip", "b"}, {}, folder.path(), {}});
  const std::string path = (folder / "a.zip").string();
  EXPECT_EQ(support::ioError(2), support::raised([&] {
              pkg::QCFPackageFactory().openPackage(path, kIn, nullptr, nullptr, nullptr);
            }));
}

TEST(OtherWritersOnce, ASplitArchiveIsRefused) {
  const TempDir folder;
  std::string noise;
  unsigned state = 1;
  for (int i = 0; i < 200000; ++i) {
    state = state * 1664525 + 1013904223;
    noise += static_cast<char>(state >> 24);
  }
  folder.write("noise", noise);
  support::mustRun({{"zip", "-qs", "64k", "a.zip", "noise"}, {}, folder.path(), {}});
  const std::string first = (folder / "a.z01").string();
  EXPECT_EQ(support::misuse(16), support::raised([&] {
              pkg::QCFPackageFactory().openPackage(first, kIn, nullptr, nullptr, nullptr);
            }));
}
