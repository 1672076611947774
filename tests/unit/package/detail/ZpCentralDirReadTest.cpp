#include <cstdint>
#include <exception>
#include <string>

#include <gtest/gtest.h>

#include "package/detail/ZpCentralDir.h"

#include "support/Raised.h"
#include "support/ZipBytes.h"
#include "unit/package/detail/TestPackage.h"

// How the records of a whole directory are read.

namespace {

using namespace pkg;
using support::Failure;
using support::ioError;
using support::nothing;
using support::Raised;
using support::raised;
using support::TestPackage;
using zipbytes::centralHeader;
using zipbytes::Entry;
using zipbytes::extraBlock;

Entry named(const std::string& name) {
  Entry entry;
  entry.name = name;
  return entry;
}

class Entries : public testing::Test {
protected:
  Raised read(const std::string& bytes, std::uint64_t count, std::uint64_t offset = 0) {
    const auto file = package.file(bytes);
    directory.fEntryCount = count;
    directory.fDirectoryOffset = offset;
    return raised([&] { directory.readCDEntries(file.get(), package.zip()); });
  }
  std::string property(const std::string& path, QCFPropertyName name) const {
    return package.properties().getZipProperty(path, name, nullptr);
  }

  TestPackage package;
  zip::ZpCentralDir<> directory;
};

TEST_F(Entries, ComeInTheOrderOfTheFile) {
  std::string bytes = "lead";
  for (const char* const name : {"b", "a", "c/"})
    bytes += centralHeader(named(name));
  EXPECT_EQ(read(bytes, 3, 4), nothing());
  ASSERT_EQ(directory.fEntries.size(), 3u);
  EXPECT_STREQ(directory.fEntries[0]->fName.get(), "b");
  EXPECT_STREQ(directory.fEntries[1]->fName.get(), "a");
  EXPECT_STREQ(directory.fEntries[2]->fName.get(), "c/");
  EXPECT_GE(directory.fEntries.capacity(), 13u) << "ten spare places";
}

TEST_F(Entries, PublishTheirDatesAndTimesAsHexadecimalText) {
  Entry entry = named("name");
  entry.date = 0x1234;
  entry.time = 0xABCD;
  EXPECT_EQ(read(centralHeader(entry), 1), nothing());
  EXPECT_EQ(property("name", QCFPropertyZipDate), "3412");
  EXPECT_EQ(property("name", QCFPropertyZipTime), "CDAB");
  bool modified = true;
  package.properties().getZipProperty("name", QCFPropertyZipDate, &modified);
  EXPECT_FALSE(modified);
}

TEST_F(Entries, AreAsManyAsTheCountSaysWhateverTheSizeSays) {
  std::string bytes;
  for (const char* const name : {"a", "b", "c"})
    bytes += centralHeader(named(name));
  directory.fDirectorySize = 1;
  EXPECT_EQ(read(bytes, 2), nothing());
  EXPECT_EQ(directory.fEntries.size(), 2u);
  zip::ZpCentralDir<> other;
  other.fDirectorySize = 1 << 20;
  other.fEntryCount = 3;
  EXPECT_EQ(raised([&] { other.readCDEntries(package.file(bytes).get(), package.zip()); }),
            nothing());
  EXPECT_EQ(other.fEntries.size(), 3u);
}

TEST_F(Entries, NoneAreReadWhereThereAreNone) {
  EXPECT_EQ(read("anything", 0, 3), nothing());
  EXPECT_TRUE(directory.fEntries.empty());
}

TEST_F(Entries, TwoOfTheSameNameBothStay) {
  Entry second = named("same");
  second.date = 0x5678;
  EXPECT_EQ(read(centralHeader(named("same")) + centralHeader(second), 2), nothing());
  EXPECT_EQ(directory.fEntries.size(), 2u);
  EXPECT_EQ(property("same", QCFPropertyZipDate), "7856") << "the later one speaks";
  EXPECT_EQ(directory.find("same"), directory.fEntries[0]);
}

TEST_F(Entries, ThoseBeforeAFailureStayWithTheirProperties) {
  Entry broken = named("broken");
  broken.centralSignature = 0;
  EXPECT_EQ(read(centralHeader(named("first")) + centralHeader(broken), 2), ioError(3));
  ASSERT_EQ(directory.fEntries.size(), 1u);
  EXPECT_EQ(property("first", QCFPropertyZipDate), "2100");
  EXPECT_EQ(property("broken", QCFPropertyZipDate), "");
}

TEST_F(Entries, ACountBeyondTheFileRaises2) {
  EXPECT_EQ(read(centralHeader(named("only")), 2), ioError(2));
  EXPECT_EQ(directory.fEntries.size(), 1u);
}

TEST_F(Entries, AnOffsetIntoNonsenseRaises3) {
  EXPECT_EQ(read("lead" + centralHeader(named("a")) + "behind", 1, 3), ioError(3));
}

TEST_F(Entries, ACountThatNoVectorCanHoldRaises9) {
  constexpr std::uint64_t most = SIZE_MAX / sizeof(zip::ZpCentralDir<>::EntryPtr);
  EXPECT_EQ(read("", most + 1), ioError(9));
  EXPECT_EQ(read("", ~std::uint64_t{0}), ioError(9));
}

TEST_F(Entries, ACountThatNoMemoryCanHoldIsTheMemorysFailure) {
  constexpr std::uint64_t most = SIZE_MAX / sizeof(zip::ZpCentralDir<>::EntryPtr);
  for (const std::uint64_t count : {most, most - 9, most - 10}) {
    EXPECT_THROW(read("", count), std::exception);
  }
}

TEST_F(Entries, AFileThatCannotSeekIsReadFromWhereItStands) {
  package.files().put("bytes", centralHeader(named("a")));
  support::UnseekableFileSystem pipes(package.files());
  const auto pipe = pipes.openFile(pipes.getFSFileName("bytes"), std::ios::in);
  directory.fEntryCount = 1;
  directory.fDirectoryOffset = 12345;
  EXPECT_EQ(raised([&] { directory.readCDEntries(pipe.get(), package.zip()); }), nothing());
  EXPECT_STREQ(directory.fEntries.at(0)->fName.get(), "a");
}

TEST_F(Entries, OneWithoutANameIsRefused) {
  EXPECT_EQ(read(centralHeader(named("")), 1), ioError(4));
}

TEST_F(Entries, OnesThatThisLibraryCannotOpenAreReadAllTheSame) {
  Entry encrypted = named("encrypted");
  encrypted.flags = 1;
  Entry exotic = named("exotic");
  exotic.method = 93;
  exotic.disk = 5;
  exotic.versionNeeded = 0x0363;
  EXPECT_EQ(read(centralHeader(encrypted) + centralHeader(exotic), 2), nothing());
  EXPECT_EQ(directory.fEntries.size(), 2u);
}

TEST_F(Entries, CommentsStayInTheirRecords) {
  Entry entry = named("name");
  entry.comment = "of the entry";
  EXPECT_EQ(read(centralHeader(entry), 1), nothing());
  EXPECT_STREQ(directory.fEntries.at(0)->fComment.get(), "of the entry");
  EXPECT_EQ(property("name", QCFPropertyPackageComment), "");
  EXPECT_EQ(package->getProperty(QCFPropertyPackageComment), "");
}

TEST_F(Entries, EveryFailureOfTheFileLayerPasses) {
  Entry entry = named("name");
  entry.centralExtra = extraBlock(7, "x");
  entry.comment = "c";
  package.files().put("bytes", centralHeader(entry));
  for (int n = 1;; ++n) {
    support::FailingFileSystem failing(package.files(), n, {Failure::Read, Failure::Seek});
    const auto file = failing.openFile(failing.getFSFileName("bytes"), std::ios::in);
    zip::ZpCentralDir<> fresh;
    fresh.fEntryCount = 1;
    const Raised result = raised([&] { fresh.readCDEntries(file.get(), package.zip()); });
    if (!failing.hasFailed()) {
      EXPECT_EQ(result, nothing());
      EXPECT_EQ(n, 6) << "a seek, a header and three parts";
      break;
    }
    EXPECT_EQ(result, ioError(50)) << n;
    EXPECT_TRUE(fresh.fEntries.empty());
  }
}

}  // namespace
