#include "golden/Golden.h"
#include "golden/Readers.h"

// Extra fields, data descriptors and CRCs of new entries.

namespace {

using namespace golden;
using pkg::CompressionStored;
using pkg::QCFPropertyZipTypeCreator;

constexpr char kTypeCreator[] = "TEXTttxt";
constexpr char kTypeCreatorHex[] = "5445585474747874";

class Headers : public Golden {};

// The record of a typed entry was counted before its block came: the end record's directory size is
// 16 bytes short for each, and most programs take the file for damaged.
TEST_F(Headers, TypeAndCreatorStandInABlockOfBothHeaders) {
  const Package package = create();
  package->getFile("a.txt", false)->setProperty(QCFPropertyZipTypeCreator, kTypeCreatorHex);
  write(package, "a.txt", "typed", CompressionStored);
  package->endUpdate();

  Entry entry = storedEntry("a.txt", "typed");
  entry.localExtra = entry.centralExtra = zipbytes::typeCreatorBlock(kTypeCreator);
  zipbytes::File expected;
  expected.add(entry, "typed");
  zipbytes::End end = expected.end();
  end.directorySize -= 16;
  EXPECT_TRUE(sameBytes(expected.bytes(end), bytes()));
  EXPECT_EQ(objections(bytes()),
            "unzip refuses, zipinfo refuses, zipfile refuses, 7z refuses, ziptool refuses");
}

// A copy counts its record with the block in it.
TEST_F(Headers, SavedOnceMoreATypedPackageIsGoodForEveryReader) {
  const Package package =
      fFactory.openPackage("first.pkg", kIn | kOut | kTrunc, fFiles, nullptr, nullptr);
  package->beginUpdate();
  package->getFile("a.txt", false)->setProperty(QCFPropertyZipTypeCreator, kTypeCreatorHex);
  write(package, "a.txt", "typed", CompressionStored);
  package->endUpdate();
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  Entry entry = storedEntry("a.txt", "typed");
  entry.localExtra = entry.centralExtra = zipbytes::typeCreatorBlock(kTypeCreator);
  zipbytes::File expected;
  expected.add(entry, "typed");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
}

// The local header has no room for a type that came after it was made.
TEST_F(Headers, ATypeThatComesTooLateStandsInTheDirectoryAlone) {
  const Package package = create();
  const auto file = package->getFile("a.txt", false);
  const auto* const zipPackage =
      dynamic_cast<pkg::zip::ZipPackage<pkg::AppContext>*>(package.get());
  write(package, "a.txt", "typed", CompressionStored);
  zipPackage->getPropertyMgr()->setZipProperty("a.txt", QCFPropertyZipTypeCreator, kTypeCreatorHex,
                                               false);
  package->endUpdate();

  const Entry local = storedEntry("a.txt", "typed");
  Entry central = local;
  central.centralExtra = zipbytes::typeCreatorBlock(kTypeCreator);
  zipbytes::File expected;
  expected.addAs(local, central, "typed");
  zipbytes::End end = expected.end();
  end.directorySize -= 16;
  EXPECT_TRUE(sameBytes(expected.bytes(end), bytes()));
}

// A type that goes between the opening of an entry and its first byte leaves the room that the
// local header has counted: on a file that can seek it becomes a hole.
TEST_F(Headers, ATypeThatGoesBeforeTheFirstByteLeavesAHoleInTheLocalHeader) {
  const Package package = create();
  const auto* const zipPackage =
      dynamic_cast<pkg::zip::ZipPackage<pkg::AppContext>*>(package.get());
  const auto file = package->getFile("a.txt", false);
  file->setProperty(QCFPropertyZipTypeCreator, kTypeCreatorHex);
  file->setCompressionMethod(CompressionStored);
  const Stream stream = file->open(kOut, false);
  zipPackage->getPropertyMgr()->setZipProperty("a.txt", QCFPropertyZipTypeCreator, "", false);
  *stream << "typed";
  stream->close();
  package->endUpdate();

  Entry local = storedEntry("a.txt", "typed");
  local.localExtra = Bytes(16, '\0');
  zipbytes::File expected;
  expected.addAs(local, storedEntry("a.txt", "typed"), "typed");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

TEST_F(Headers, UnderDescriptorPolicy2EachEntryHasADescriptorAndAPatchedHeaderOfZeros) {
  fPolicies.descriptor = 2;
  const Package package = create();
  write(package, "stored.txt", "some data", CompressionStored);
  write(package, "deflated.txt", "some data");
  write(package, "empty.txt", "");
  package->getDirectory("d", false)->create();
  package->endUpdate();

  zipbytes::File expected;
  const auto add = [&](Entry entry, const Bytes& data) {
    const Entry central = described(std::move(entry));
    expected.addAs(withoutNumbers(central), central, data, descriptorOf(central));
  };
  add(storedEntry("stored.txt", "some data"), "some data");
  add(deflatedEntry("deflated.txt", "some data"), deflated("some data"));
  add(emptyEntry("empty.txt"), "");
  add(directoryEntry("d/"), "");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
}

TEST_F(Headers, DescriptorPolicy3ChangesNothingOnAFileThatCanSeek) {
  fPolicies.descriptor = 3;
  const Package package = create();
  write(package, "a.txt", "some data");
  package->endUpdate();

  zipbytes::File expected;
  expected.add(deflatedEntry("a.txt", "some data"), deflated("some data"));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

// No reader can check such an entry; those that do say so.
TEST_F(Headers, UnderCRCPolicy5EveryCRCIsZero) {
  fPolicies.crc = 5;
  const Package package = create();
  write(package, "a.txt", "some data", CompressionStored);
  package->endUpdate();

  Entry entry = storedEntry("a.txt", "some data");
  entry.crc = 0;
  zipbytes::File expected;
  expected.add(entry, "some data");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "unzip refuses, zipfile warns, 7z refuses");
}

TEST_F(Headers, CRCPolicy5AndADescriptorPutTheZeroIntoTheDescriptorToo) {
  fPolicies.crc = 5;
  fPolicies.descriptor = 2;
  const Package package = create();
  write(package, "a.txt", "some data", CompressionStored);
  package->endUpdate();

  Entry entry = described(storedEntry("a.txt", "some data"));
  entry.crc = 0;
  zipbytes::File expected;
  expected.addAs(withoutNumbers(entry), entry, "some data", descriptorOf(entry));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

TEST_F(Headers, ARewrittenEntryLeavesItsFirstCopyBehindAndCountedInTheDirectorysSize) {
  const Package package = create();
  write(package, "a.txt", "first", CompressionStored);
  write(package, "b.txt", "between", CompressionStored);
  write(package, "a.txt", "second one", CompressionStored);
  package->endUpdate();

  zipbytes::File expected;
  expected.raw(zipbytes::localHeader(storedEntry("a.txt", "first"))).raw("first");
  expected.add(storedEntry("b.txt", "between"), "between");
  expected.add(storedEntry("a.txt", "second one"), "second one");
  zipbytes::End end = expected.end();
  end.directorySize += 46 + 5;
  EXPECT_TRUE(sameBytes(expected.bytes(end), bytes()));
}

}  // namespace
