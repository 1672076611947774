#include <climits>

#include <gtest/gtest.h>

#include "unit/package/detail/FakeParser.h"
#include "unit/reading/Reading.h"

using namespace reading;

namespace {

void writeFile(const File& file, const std::string& text) {
  const Stream stream = file->open(kOut, false);
  *stream << text;
  stream->close();
}

}  // namespace

TEST(FileEntry, OpeningForNeitherReadingNorWritingRaises22) {
  const MemoryPackage package(packageOf({"a"}));
  const File file = package->getFile("a", true);
  const auto none = std::ios_base::openmode();
  for (const auto mode : {none, std::ios_base::binary, std::ios_base::ate, kTrunc}) {
    const Raised raised = raisedBy([&] { file->open(mode, false); });
    EXPECT_EQ(22, raised.code);
    EXPECT_FALSE(raised.isIO);
  }
}

TEST(FileEntry, OpeningForBothRaises19) {
  const MemoryPackage package(packageOf({"a"}), nullptr, kIn | kOut);
  const File file = package->getFile("a", true);
  const Raised raised = raisedBy([&] { file->open(kIn | kOut, false); });
  EXPECT_EQ(19, raised.code);
  EXPECT_FALSE(raised.isIO);
  EXPECT_EQ("PKGLIB SAMPLE ERROR MESSAGE: NOT Implemented", raised.text);
  EXPECT_EQ(0, package.files.count(support::FileCall::CreateTemp));
  EXPECT_FALSE(package->isModified());
}

TEST(FileEntry, ReadingAPackageThatIsOpenForWritingOnlyRaises26) {
  const MemoryPackage package("", nullptr, kOut);
  const File file = package->getFile("a", false);
  const Raised raised = raisedBy([&] { file->open(kIn, false); });
  EXPECT_EQ(26, raised.code);
  EXPECT_FALSE(raised.isIO);
  EXPECT_EQ("PKGLIB SAMPLE ERROR MESSAGE: Package Open Write-Only", raised.text);
}

TEST(FileEntry, WhatIsNotSavedYetCanBeReadEvenThere) {
  const MemoryPackage package("", nullptr, kOut);
  const File file = package->getFile("a", false);
  writeFile(file, "text");
  EXPECT_EQ("text", readAll(*file));
}

TEST(FileEntry, ReadingAnEntryWithoutDataRaises21) {
  const MemoryPackage package(packageOf({"a"}));
  const File file = package->getFile("b", false);
  const Raised raised = raisedBy([&] { file->open(kIn, false); });
  EXPECT_EQ(21, raised.code);
  EXPECT_FALSE(raised.isIO);
  EXPECT_RAISES(21, file->open(kIn, true));
}

TEST(FileEntry, OtherModeBitsMakeNoDifference) {
  const MemoryPackage package(packageOf({"a"}));
  const File file = package->getFile("a", true);
  EXPECT_EQ("x", readAll(*file->open(kIn | std::ios_base::binary | std::ios_base::ate, false)));
  EXPECT_EQ("x", readAll(*file->open(kIn | kTrunc, false)));
}

TEST(FileEntry, SizesComeFromTheRecordOrElseFromWhatIsExpected) {
  const MemoryPackage package(packageOf({"a"}));
  const File stored = package->getFile("a", true);
  stored->setExpectedSize(77);
  EXPECT_EQ(1, stored->getSize64());
  const File fresh = package->getFile("new", false);
  EXPECT_EQ(0, fresh->getSize64());
  fresh->setExpectedSize(77);
  EXPECT_EQ(77, fresh->getSize64());
  EXPECT_EQ(77u, fresh->getSize());
  EXPECT_EQ(0, fresh->getCompressedSize64());
  EXPECT_EQ(0u, fresh->getCompressedSize());
}

TEST(FileEntry, ARecordOfSizeZeroGivesWayToWhatIsExpected) {
  zipbytes::File file;
  const MemoryPackage package(addStored(file, "a", "").bytes());
  const File entry = package->getFile("a", true);
  EXPECT_EQ(0, entry->getSize64());
  entry->setExpectedSize(77);
  EXPECT_EQ(77, entry->getSize64());
  EXPECT_EQ(0, entry->getCompressedSize64());
}

TEST(FileEntry, The32BitSizesAreCut) {
  zipbytes::Entry central = zipbytes::storedEntry("a", "x");
  central.size = central.compressedSize = 0xFFFFFFFF;
  central.centralExtra = zipbytes::zip64Block({0x100000005, 0x200000007});
  zipbytes::File file;
  const MemoryPackage package(file.addAs(zipbytes::storedEntry("a", "x"), central, "x").bytes());
  const File entry = package->getFile("a", true);
  EXPECT_EQ(0x100000005, entry->getSize64());
  EXPECT_EQ(0x200000007, entry->getCompressedSize64());
  EXPECT_EQ(5u, entry->getSize());
  EXPECT_EQ(7u, entry->getCompressedSize());
}

TEST(FileEntry, TheCRCComesFromTheRecordOrElseFromWhatIsExpected) {
  const MemoryPackage package(packageOf({"a"}));
  const File stored = package->getFile("a", true);
  stored->setExpectedCRC32(77);
  EXPECT_EQ(zipbytes::crc32("x"), stored->getCRC32());
  const File fresh = package->getFile("new", false);
  EXPECT_EQ(0u, fresh->getCRC32());
  fresh->setExpectedCRC32(77);
  EXPECT_EQ(77u, fresh->getCRC32());
}

TEST(FileEntry, RemovingZeroesSizesAndCRCAtOnce) {
  for (const auto mode : {kIn, kIn | kOut}) {
    const MemoryPackage package(packageOf({"a"}), nullptr, mode);
    const File file = package->getFile("a", true);
    file->setExpectedSize(5);
    file->remove();
    EXPECT_TRUE(file->isDeleted());
    EXPECT_EQ(0, file->getSize64());
    EXPECT_EQ(0u, file->getCRC32());
    EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("a"));
    EXPECT_EQ(mode == kIn, package->isModified());
    EXPECT_EQ(mode == kIn, file->isModified());
  }
}

TEST(FileEntry, WritingToADeletedFileBringsItBack) {
  for (const auto mode : {kIn, kIn | kOut}) {
    const MemoryPackage package(packageOf({"a"}), nullptr, mode);
    const File file = package->getFile("a", true);
    file->remove();
    writeFile(file, "again");
    EXPECT_FALSE(file->isDeleted());
    EXPECT_EQ(pkg::PkgEntryFile, package->entryExists("a"));
    EXPECT_EQ("again", readAll(*file));
  }
}

TEST(FileEntry, OpeningForWritingAgainEmptiesWhatWasSpooled) {
  const MemoryPackage package(packageOf({"a"}), nullptr, kIn | kOut);
  const File file = package->getFile("a", true);
  writeFile(file, "a long text");
  writeFile(file, "short");
  EXPECT_EQ("short", readAll(*file));
  EXPECT_EQ(1, package.files.count(support::FileCall::CreateTemp));
}

TEST(FileEntry, ResolvesReferencesFromWhereItStands) {
  const MemoryPackage package(packageOf({"a/b.xml", "top.xml", "a/b/c.xml"}));
  struct Case {
    const char* entry;
    const char* reference;
    const char* path;
  };
  for (const Case& c : {
           Case{"a/b.xml", "#frag", "/a/b.xml#frag"},
           Case{"a/b.xml", "c.xml", "/a/c.xml"},
           Case{"a/b.xml", "urn:x", "urn:x"},
           Case{"a/b.xml", "http://host/../x", "http://host/../x"},
           Case{"a/b.xml", "//host/./x", "//host/./x"},
           Case{"a/b.xml", "/c.xml", "/c.xml"},
           Case{"a/b.xml", "/x/./y//z/../c.xml", "/x/y/c.xml"},
           Case{"a/b.xml", "../c.xml", "/c.xml"},
           Case{"a/b.xml", "../../../c.xml", "/c.xml"},
           Case{"a/b.xml", "./c.xml#x/../y", "/a/c.xml#x/../y"},
           Case{"a/b.xml", "d/e:f", "/a/d/e:f"},  // a colon behind a separator is no scheme
           Case{"a/b.xml", "/e:f", "/e:f"},
           Case{"a/b.xml", ":", ":"},
           Case{"a/b.xml", "", "/a/"},
           Case{"a/b.xml", ".", "/a/"},
           Case{"a/b.xml", "..", "/"},
           Case{"a/b.xml", "/", "/"},
           Case{"a/b.xml", "//", "//"},
           Case{"top.xml", "c.xml", "/c.xml"},
           Case{"top.xml", "#frag", "/top.xml#frag"},
           Case{"top.xml", "", "/"},
           Case{"a/b/c.xml", "../d/e", "/a/d/e"},
       }) {
    EXPECT_EQ(c.path, package->getFile(c.entry, true)->resolvePath(c.reference))
        << c.entry << " and " << c.reference;
  }
}

TEST(FileEntry, ZipPropertiesNeedNeitherParserNorUpdate) {
  const MemoryPackage package(packageOf({"a"}));
  const File file = package->getFile("a", true);
  EXPECT_EQ("2100", file->getProperty(pkg::QCFPropertyZipDate));
  EXPECT_EQ("0000", file->getProperty(pkg::QCFPropertyZipTime));
  EXPECT_EQ("", file->getProperty(pkg::QCFPropertyZipTypeCreator));
  file->setProperty(pkg::QCFPropertyZipDate, "3412");
  file->setProperty(pkg::QCFPropertyZipTypeCreator, "0102030405060708");
  EXPECT_EQ("3412", file->getProperty(pkg::QCFPropertyZipDate));
  EXPECT_EQ("0102030405060708", file->getProperty(pkg::QCFPropertyZipTypeCreator));
}

TEST(FileEntry, ZipPropertiesCannotFollowDataThatIsWritten) {
  const MemoryPackage package(packageOf({"a"}), nullptr, kIn | kOut);
  const File file = package->getFile("a", true);
  writeFile(file, "text");
  for (const auto name :
       {pkg::QCFPropertyZipDate, pkg::QCFPropertyZipTime, pkg::QCFPropertyZipTypeCreator}) {
    const Raised raised = raisedBy([&] { file->setProperty(name, "3412"); });
    EXPECT_EQ(23, raised.code);
    EXPECT_FALSE(raised.isIO);
  }
  EXPECT_EQ("2100", file->getProperty(pkg::QCFPropertyZipDate));
}

TEST(FileEntry, GenericPropertiesWithoutAParserRaise23) {
  const MemoryPackage package(packageOf({"a"}));
  const File file = package->getFile("a", true);
  for (const int name : {3, 999, 1000, 2000, 2001, 2002, 2003}) {
    EXPECT_RAISES(23, file->getProperty(static_cast<pkg::QCFPropertyName>(name))) << name;
    EXPECT_RAISES(23, file->setProperty(static_cast<pkg::QCFPropertyName>(name), "")) << name;
  }
}

TEST(FileEntry, ANegativePropertyNameIsNotOneOfTheZipProperties) {
  const MemoryPackage package(packageOf({"a"}), nullptr, kIn | kOut);
  const File file = package->getFile("a", true);
  for (const bool written : {false, true}) {
    if (written) writeFile(file, "text");
    for (const int name : {-1, -2000, INT_MIN}) {
      EXPECT_RAISES(23, file->getProperty(static_cast<pkg::QCFPropertyName>(name))) << name;
      EXPECT_RAISES(23, file->setProperty(static_cast<pkg::QCFPropertyName>(name), "")) << name;
    }
  }
}

TEST(FileEntry, WithAParserANegativePropertyNameRaises22BeforeAndAfterDataIsWritten) {
  support::FakeParser parser;
  const MemoryPackage package(packageOf({"a"}), nullptr, kIn | kOut, &parser);
  const File file = package->getFile("a", true);
  const auto name = static_cast<pkg::QCFPropertyName>(-1);
  EXPECT_RAISES(22, file->getProperty(name));
  EXPECT_RAISES(28, file->setProperty(name, "")) << "no update: before the name is looked at";
  package->beginUpdate("b.pkg", kIn | kOut | kTrunc);
  EXPECT_RAISES(22, file->setProperty(name, ""));
  writeFile(file, "text");
  EXPECT_RAISES(22, file->getProperty(name));
  EXPECT_RAISES(22, file->setProperty(name, ""));
  package->cancelUpdate();
}

TEST(FileEntry, RemovingMimetypeUnderThePolicyRaises45) {
  const Policy keep(1);
  const MemoryPackage package(packageOf({"mimetype", "a"}), &keep);
  const File file = package->getFile("mimetype", true);
  const Raised raised = raisedBy([&] { file->remove(); });
  EXPECT_EQ(45, raised.code);
  EXPECT_FALSE(raised.isIO);
  EXPECT_FALSE(file->isDeleted());
  EXPECT_NO_THROW(package->getFile("a", true)->remove());
}

TEST(FileEntry, RemovingMimetypeWithoutThePolicyIsAllowed) {
  const MemoryPackage package(packageOf({"mimetype", "a"}));
  EXPECT_NO_THROW(package->getFile("mimetype", true)->remove());
  EXPECT_EQ("", package->getMIMEType());
}
