#include <boost/make_shared.hpp>

#include "unit/writing/Writing.h"

// Entries as objects: how they are made, written, removed and brought back.

namespace {

using namespace writing;

class EntryObjects : public Writing {
protected:
  static Bytes withDirectory() {
    zipbytes::File old;
    old.add(storedEntry("a.txt", "alpha"), "alpha");
    old.add(directoryEntry("d/"), "");
    return old.bytes();
  }
};

TEST_F(EntryObjects, ANewEntryTakesThePackagesDefaultMethodAndDeflateWhereThereIsNone) {
  const Package package = create();
  package->setDefaultCompressionMethod(CompressionStored);
  EXPECT_EQ(package->getFile("stored", false)->getCompressionMethod(), CompressionStored);
  package->setDefaultCompressionMethod(pkg::CompressionDefault);
  EXPECT_EQ(package->getFile("default", false)->getCompressionMethod(), CompressionDeflated);
  package->setDefaultCompressionMethod(CompressionDeflated);
  EXPECT_EQ(package->getFile("deflated", false)->getCompressionMethod(), CompressionDeflated);
}

TEST_F(EntryObjects, AnyMethodButStoredReadsAsDeflate) {
  zipbytes::File old;
  Entry entry = storedEntry("a.txt", "alpha");
  entry.method = 12;
  old.add(entry, "alpha");
  const Package package = open(old.bytes());
  EXPECT_EQ(package->getFile("a.txt", true)->getCompressionMethod(), CompressionDeflated);
}

TEST_F(EntryObjects, AnEntryThatIsNotThereRaises21WhereItMustExist) {
  const Package package = open(withDirectory());
  EXPECT_RAISED("21", package->getFile("none.txt", true));
  EXPECT_RAISED("21", package->getDirectory("none", true));
}

TEST_F(EntryObjects, ANameOf65535BytesIsWrittenAndOneMoreRaises22) {
  const Package package = create();
  const Bytes longest(65535, 'n');
  write(package, longest, "x", CompressionStored);
  const File tooLong = package->getFile(longest + "n", false);
  EXPECT_RAISED("22", tooLong->open(kOut, false));
  package->endUpdate();
  EXPECT_EQ(contents(open(bytes()), longest), "x");
}

TEST_F(EntryObjects, AnEntryWithoutAPackageRaises22) {
  using pkg::zip::ZipPkgDirectory;
  using pkg::zip::ZipPkgFile;
  const auto record = boost::make_shared<pkg::zip::ZpCentralDirEntry<>>();
  record->setName("a.txt");
  for (const bool mustExist : {false, true}) {
    EXPECT_RAISED("22", ZipPkgFile<>("a.txt", mustExist, nullptr));
    EXPECT_RAISED("22", ZipPkgDirectory<>("d/", mustExist, nullptr));
  }
  EXPECT_RAISED("22", ZipPkgFile<>(record, nullptr));
  EXPECT_RAISED("22", ZipPkgDirectory<>(record, nullptr));
}

TEST_F(EntryObjects, ADirectoryIsNoFileAndAFileNoDirectory) {
  const Package package = open(withDirectory());
  EXPECT_RAISED("23", package->getDirectory("d", true)->toFile());
  EXPECT_RAISED("23", package->getFile("a.txt", true)->toDirectory());
  EXPECT_EQ(package->getDirectory("d", true)->toDirectory()->getName(), "d/");
  EXPECT_EQ(package->getFile("a.txt", true)->toFile()->getName(), "a.txt");
}

TEST_F(EntryObjects, CreateRaises25ForADirectoryThatThePackageHolds) {
  const Package package = open(withDirectory());
  EXPECT_RAISED("25", package->getDirectory("d", true)->create());
}

TEST_F(EntryObjects, CreateTwiceRaises25TheSecondTime) {
  const Package package = create();
  const Directory directory = package->getDirectory("d", false);
  directory->create();
  EXPECT_RAISED("25", directory->create());
}

TEST_F(EntryObjects, CreateOfARemovedDirectoryBringsItBack) {
  const Package package = open(withDirectory());
  const Directory directory = package->getDirectory("d", true);
  directory->remove();
  EXPECT_TRUE(directory->isDeleted());
  directory->create();
  EXPECT_FALSE(directory->isDeleted());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(open(bytes())->entryExists("d/"), pkg::PkgEntryDirectory);
}

TEST_F(EntryObjects, ADirectoryCreatedOutsideAnUpdateIsWrittenByTheNextSave) {
  const Package package = open(withDirectory());
  package->getDirectory("e", false)->create();
  EXPECT_TRUE(package->isModified());
  package->doUNSAFEUpdateInPlace();
  EXPECT_EQ(open(bytes("old.pkg"))->entryExists("e/"), pkg::PkgEntryDirectory);
}

TEST_F(EntryObjects, ADirectoryCreatedWhileAnEntryIsBeingWrittenWaits) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt");
  *stream << "alpha";
  package->getDirectory("d", false)->create();
  EXPECT_EQ(bytes().find("d/"), Bytes::npos);
  stream->close();
  package->endUpdate();
  EXPECT_GT(bytes().find("d/"), bytes().find("alpha"));
}

TEST_F(EntryObjects, ARemovedDirectoryIsNotWritten) {
  const Package package = open(withDirectory());
  package->getDirectory("d", true)->remove();
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(bytes().find("d/"), Bytes::npos);
}

TEST_F(EntryObjects, ARemovedEntryIsForgottenWhenTheUpdateEnds) {
  const Package package = open(withDirectory());
  const File file = package->getFile("a.txt", true);
  file->remove();
  package->doUNSAFEUpdateInPlace();
  EXPECT_EQ(package->entryExists("a.txt"), pkg::PkgEntryNone);
  EXPECT_RAISED("21", package->getFile("a.txt", true));
  EXPECT_TRUE(file->isDeleted());
}

TEST_F(EntryObjects, DirectoriesGetADescriptorOnlyWhereThePolicyAsksForOne) {
  const Bytes mark = zipbytes::u32(0x08074b50);
  for (const std::int32_t answer : {0, 2, 3}) {
    fPolicies.descriptor = answer;
    const Package package = create();
    package->getDirectory("d", false)->create();
    package->endUpdate();
    EXPECT_EQ(bytes().find(mark) != Bytes::npos, answer == 2) << answer;
  }
}

TEST_F(EntryObjects, WithoutDescriptorAndSizeAnUnseekableOutputAnnouncesZeroAndIsThenRefused) {
  support::UnseekableFileSystem forward(fMemory);
  fFiles = &forward;
  fPolicies.descriptor = 3;
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt");
  *stream << "data";
  EXPECT_EQ(bytes().substr(18, 8), Bytes(8, '\0'));
  EXPECT_RAISED("17", stream->close());
}

TEST_F(EntryObjects, ALocalHeaderThatIsDamagedFailsWhenTheEntryIsAskedFor) {
  zipbytes::File old;
  old.add(storedEntry("b.txt", "beta"), "beta");
  Entry lost = storedEntry("a.txt", "alpha");
  lost.offset = 3;
  old.list(lost);
  const Package package = open(old.bytes());
  EXPECT_RAISED("IO 8", package->getFile("a.txt", true));
  EXPECT_EQ(contents(package, "b.txt"), "beta");
}

TEST_F(EntryObjects, TheUpdateThatCopiesADamagedEntryFailsAndCanBeCancelled) {
  zipbytes::File old;
  old.add(storedEntry("b.txt", "beta"), "beta");
  Entry lost = storedEntry("a.txt", "alpha");
  lost.offset = 3;
  old.list(lost);
  const Package package = open(old.bytes());
  EXPECT_RAISED("IO 8", package->saveAs("new.pkg", kIn | kOut | kTrunc));
  package->cancelUpdate();
  EXPECT_EQ(contents(package, "b.txt"), "beta");
  EXPECT_EQ(bytes("old.pkg"), old.bytes());
}

}  // namespace
