#include <gtest/gtest.h>

#include "unit/reading/Reading.h"

using namespace reading;
using zipbytes::storedEntry;

namespace {

constexpr char kType[] = "application/x-test";

std::string conforming() {
  zipbytes::File file;
  addStored(file, "mimetype", kType);
  return addStored(file, "a", "x").bytes();
}
std::string deflatedType() {
  zipbytes::File file;
  addDeflated(file, "mimetype", kType);
  return addStored(file, "a", "x").bytes();
}
std::string notFirst() {
  zipbytes::File file;
  addStored(file, "a", "x");
  return addStored(file, "mimetype", kType).bytes();
}
std::string missing() {
  return packageOf({"a", "b"});
}
std::string withType(const std::string& text) {
  zipbytes::File file;
  return addStored(file, "mimetype", text).bytes();
}

// A package whose "mimetype" says different methods in its two headers.
std::string methods(std::uint16_t local, std::uint16_t central) {
  zipbytes::Entry localEntry = storedEntry("mimetype", kType);
  zipbytes::Entry centralEntry = localEntry;
  localEntry.method = local;
  centralEntry.method = central;
  zipbytes::File file;
  return file.addAs(localEntry, centralEntry, kType).bytes();
}

// A package's bytes after it was saved as a new file.
std::string saved(const MemoryPackage& package) {
  package->saveAs("b.pkg", kIn | kOut | kTrunc);
  return package.memory.bytes("b.pkg");
}

void write(const File& file, const std::string& text) {
  const Stream stream = file->open(kOut, false);
  *stream << text;
  stream->close();
}

void expectFirstAndStored(const std::string& bytes) {
  EXPECT_EQ("PK\x03\x04", bytes.substr(0, 4));
  EXPECT_EQ(std::string(2, '\0'), bytes.substr(8, 2));  // the method
  EXPECT_EQ("mimetype", bytes.substr(30, 8));
  const std::size_t extra = static_cast<unsigned char>(bytes[28]);
  EXPECT_EQ(kType, bytes.substr(38 + extra, sizeof kType - 1));
}

}  // namespace

TEST(Conformance, WithoutPoliciesAMissingTypeIsOnlyNoted) {
  const MemoryPackage package(missing());
  EXPECT_EQ(47, package->checkConformance());
  EXPECT_EQ("x", contents(package, "a"));
}

TEST(Conformance, AMissingTypeIsRefusedUnderBit1WhateverBit0Says) {
  for (const int value : {2, 3}) {
    const Policy policy(value);
    const Raised raised = opening(missing(), &policy);
    EXPECT_EQ(47, raised.code);
    EXPECT_FALSE(raised.isIO);
    EXPECT_EQ("PKGLIB SAMPLE ERROR MESSAGE: Missing mimetype file", raised.text);
  }
}

TEST(Conformance, AnInvalidTypeIsRefusedUnderBit1WhateverBit0Says) {
  for (const int value : {2, 3}) {
    const Policy policy(value);
    for (const std::string& bytes : {deflatedType(), notFirst(), methods(8, 0), methods(0, 8)}) {
      const Raised raised = opening(bytes, &policy);
      EXPECT_EQ(46, raised.code);
      EXPECT_FALSE(raised.isIO);
      EXPECT_EQ("PKGLIB SAMPLE ERROR MESSAGE: Invalid mimetype file", raised.text);
    }
    EXPECT_EQ(-1, opening(conforming(), &policy).code);
  }
}

TEST(Conformance, WithoutPoliciesAnInvalidTypeIsOnlyNoted) {
  for (const std::string& bytes : {deflatedType(), notFirst()}) {
    const MemoryPackage package(bytes);
    EXPECT_EQ(46, package->checkConformance());
    EXPECT_EQ(kType, package->getMIMEType());
  }
}

TEST(Conformance, OtherBitsMeanNothing) {
  const Policy policy(4);
  EXPECT_EQ(47, MemoryPackage(missing(), &policy)->checkConformance());
}

TEST(Conformance, ALocalHeaderThatSaysDeflateMakesTheTypeInvalid) {
  EXPECT_EQ(46, MemoryPackage(methods(8, 0))->checkConformance());
  EXPECT_EQ(46, MemoryPackage(methods(0, 8))->checkConformance());
  EXPECT_EQ(0, MemoryPackage(methods(0, 0))->checkConformance());
}

TEST(Conformance, AnExtraFieldAWrongCRCOrFlagsMakeNoTypeInvalid) {
  zipbytes::Entry entry = storedEntry("mimetype", kType);
  entry.localExtra = zipbytes::extraBlock(0x5455, "12345");
  entry.centralExtra = entry.localExtra;
  entry.crc = 0;
  entry.flags = 0x0808;
  zipbytes::File file;
  const Policy refuse(2);
  const MemoryPackage package(file.add(entry, kType).bytes(), &refuse);
  EXPECT_EQ(0, package->checkConformance());
  EXPECT_EQ(kType, package->getMIMEType());
}

TEST(Conformance, AnEmptyTypeIsValid) {
  EXPECT_EQ(0, MemoryPackage(withType(""))->checkConformance());
  EXPECT_EQ("", MemoryPackage(withType(""))->getMIMEType());
}

TEST(Conformance, BothHalvesOfTheOffsetCount) {
  zipbytes::Entry entry = storedEntry("mimetype", kType);
  entry.offset = 0x10000;
  zipbytes::File file;
  addStored(file, "a", "x");
  file.raw(std::string(0x10000 - file.offset(), 'x'));
  file.raw(localHeader(entry) + kType).list(entry);
  EXPECT_EQ(46, MemoryPackage(file.bytes())->checkConformance());
}

TEST(Conformance, ADirectoryOfThatNameIsNotTheEntry) {
  const MemoryPackage package(packageOf({"mimetype/", "a"}));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("mimetype"));
  EXPECT_EQ(47, package->checkConformance());
}

TEST(Conformance, ADamagedLocalHeaderOfTheTypeFailsTheOpening) {
  zipbytes::Entry local = storedEntry("mimetype", kType);
  local.localSignature ^= 0x01000000;
  zipbytes::File file;
  addStored(file, "a", "x");
  EXPECT_EQ(8, opening(file.addAs(local, storedEntry("mimetype", kType), kType).bytes()).code);
}

TEST(Conformance, UnderBit0AMissingTypeMustComeFirst) {
  const Policy keep(1);
  const MemoryPackage package(missing(), &keep, kIn | kOut);
  EXPECT_EQ(47, package->checkConformance());
  for (const bool mustExist : {false, true}) {
    const Raised raised = raisedBy([&] { package->getFile("a", mustExist); });
    EXPECT_EQ(45, raised.code);
    EXPECT_FALSE(raised.isIO);
    EXPECT_EQ("PKGLIB SAMPLE ERROR MESSAGE: Conformance Violation", raised.text);
  }
  EXPECT_RAISES(45, package->getFile("mimetype", true));
  EXPECT_RAISES(45, package->getFile("mimetypes", false));
  EXPECT_EQ(47, package->checkConformance());
  package->setMIMEType(kType);
  EXPECT_EQ(0, package->checkConformance());
  EXPECT_EQ("x", contents(package, "a"));
  expectFirstAndStored(saved(package));
}

TEST(Conformance, AskingForTheMissingTypeIsEnoughToForgetIt) {
  const Policy keep(1);
  const MemoryPackage package(missing(), &keep);
  package->getFile("mimetype", false);
  EXPECT_EQ(0, package->checkConformance());
  EXPECT_NO_THROW(package->getFile("a", true));
}

TEST(Conformance, DirectoriesAreNotHeldToTheOrder) {
  const Policy keep(1);
  EXPECT_NO_THROW(MemoryPackage(missing(), &keep)->getDirectory("d", false));
}

TEST(Conformance, UnderBit0AnInvalidTypeIsRepairedAndWrittenFirstAndStored) {
  const Policy keep(1);
  for (const std::string& bytes : {deflatedType(), notFirst()}) {
    const MemoryPackage package(bytes, &keep, kIn | kOut);
    EXPECT_EQ(46, package->checkConformance());
    EXPECT_EQ(kType, package->getMIMEType());
    EXPECT_EQ(bytes, package.memory.bytes("a.pkg"));  // nothing is written at open
    EXPECT_EQ("x", contents(package, "a"));
    const std::string after = saved(package);
    expectFirstAndStored(after);
    EXPECT_EQ(46, package->checkConformance());
    const Policy refuse(2);
    const MemoryPackage again(after, &refuse);
    EXPECT_EQ(0, again->checkConformance());
    EXPECT_EQ(kType, again->getMIMEType());
    EXPECT_EQ("x", contents(again, "a"));
    EXPECT_EQ((Strings{"mimetype", "a"}), walk(*again));
  }
}

TEST(Conformance, ARepairKeepsTheFirstWordOnly) {
  const Policy keep(1);
  zipbytes::File file;
  addStored(file, "a", "x");
  addStored(file, "mimetype", "application/x text");
  EXPECT_EQ("application/x", MemoryPackage(file.bytes(), &keep)->getMIMEType());
}

TEST(Conformance, ARepairedPackageCanBeReadOnly) {
  const Policy keep(1);
  const MemoryPackage package(notFirst(), &keep);
  EXPECT_TRUE(package->isModified());
  EXPECT_EQ((Strings{"a", "mimetype"}), walk(*package));
  package->closeWithoutSave();
  EXPECT_EQ(0, package.memory.temporaryFiles());
}

TEST(Conformance, ANewPackageUnderBit0WantsItsTypeFirst) {
  const Policy keep(1);
  const MemoryPackage package("", &keep, kIn | kOut | kTrunc);
  EXPECT_RAISES(45, package->getFile("a", false));
  EXPECT_RAISES(45, package->getFile("a", true));
  package->setMIMEType(kType);
  EXPECT_NO_THROW(package->getFile("a", false));
}

TEST(Conformance, ANewPackageInAnUpdateWantsItsTypeFirst) {
  const Policy keep(1);
  const MemoryPackage package("", &keep, kIn | kOut | kTrunc);
  package->beginUpdate();
  EXPECT_RAISES(45, package->getFile("a", false));
  package->setMIMEType(kType);
  write(package->getFile("a", false), "x");
  package->endUpdate();
  expectFirstAndStored(package.memory.bytes("a.pkg"));
}

TEST(Conformance, AValidTypeIsChangedInAnUpdateOnlyAndOnce) {
  const Policy keep(1);
  const MemoryPackage package(conforming(), &keep, kIn | kOut);
  EXPECT_RAISES(45, package->setMIMEType("text/other"));
  package->beginUpdate();
  EXPECT_NO_THROW(package->setMIMEType("text/other"));
  EXPECT_RAISES(45, package->setMIMEType("text/third"));
  package->endUpdate();
}

TEST(Conformance, UnderBit0TheTypeIsWrittenStoredOnly) {
  const Policy keep(1);
  const MemoryPackage package("", &keep, kIn | kOut | kTrunc);
  const File file = package->getFile("mimetype", false);
  EXPECT_EQ(pkg::CompressionDeflated, file->getCompressionMethod());
  const Raised raised = raisedBy([&] { file->open(kOut, false); });
  EXPECT_EQ(45, raised.code);
  EXPECT_FALSE(raised.isIO);
  file->setCompressionMethod(pkg::CompressionStored);
  EXPECT_NO_THROW(file->open(kOut, false)->close());
  EXPECT_RAISES(45, file->open(kOut, false));  // a second time
}

TEST(Conformance, WithoutBit0TheTypeIsAnEntryLikeAnyOther) {
  const MemoryPackage package(conforming(), nullptr, kIn | kOut);
  EXPECT_NO_THROW(package->setMIMEType("text/other"));
  EXPECT_NO_THROW(package->setMIMEType("text/third"));
  EXPECT_EQ("text/third", package->getMIMEType());
  const File file = package->getFile("mimetype", true);
  file->setCompressionMethod(pkg::CompressionDeflated);
  EXPECT_NO_THROW(file->open(kOut, false)->close());
}

TEST(Conformance, ARepairedPackageThatLostItsTypeCannotBeSaved) {
  const Policy keep(1);
  const MemoryPackage package(missing(), &keep, kIn | kOut);
  const Raised raised = raisedBy([&] { package->beginUpdate("b.pkg", kIn | kOut | kTrunc); });
  EXPECT_EQ(47, raised.code);
  EXPECT_FALSE(raised.isIO);
}

TEST(Conformance, AConformingPackageCanBeMadeInOneCall) {
  support::MemoryFileSystem memory;
  const Package package = pkg::QCFPackageFactory().createConformingPackage(
      "new.pkg", kType, true, &memory, nullptr, nullptr);
  EXPECT_RAISES(35, package->beginUpdate());  // it stands in an update
  write(package->getFile("a", false), "x");
  package->endUpdate();
  package->close();
  expectFirstAndStored(memory.bytes("new.pkg"));
  const Policy refuse(3);
  EXPECT_EQ(-1, opening(memory.bytes("new.pkg"), &refuse).code);
}

TEST(MIMEType, IsTheFirstWordOfTheEntry) {
  EXPECT_EQ("application/x", MemoryPackage(withType("application/x text"))->getMIMEType());
  EXPECT_EQ("text/plain", MemoryPackage(withType(" \n\ttext/plain\r\n"))->getMIMEType());
  EXPECT_EQ("", MemoryPackage(withType("   "))->getMIMEType());
  EXPECT_EQ(std::string(10000, 't'),
            MemoryPackage(withType(std::string(10000, 't')))->getMIMEType());
}

TEST(MIMEType, IsCutAt64KiBAsItMayBeOneWordWithoutAnEnd) {
  zipbytes::File file;
  const std::string endless(std::size_t{8} << 20, 't');
  addDeflated(file, "mimetype", endless);
  EXPECT_EQ(endless.substr(0, 65536), MemoryPackage(file.bytes())->getMIMEType());
}

TEST(MIMEType, OfAPackageWithoutTheEntryIsEmptyUnderAnyPolicy) {
  for (const int value : {0, 1, 4}) {
    const Policy policy(value);
    EXPECT_EQ("", MemoryPackage(missing(), &policy)->getMIMEType());
  }
  EXPECT_EQ("", MemoryPackage("", nullptr, kOut | kTrunc)->getMIMEType());
  EXPECT_EQ("", MemoryPackage(packageOf({"mimetype/"}))->getMIMEType());
}

TEST(MIMEType, OfADeletedEntryIsEmpty) {
  const MemoryPackage package(conforming());
  package->getFile("mimetype", true)->remove();
  EXPECT_EQ("", package->getMIMEType());
}

TEST(MIMEType, LeavesNoStreamOpen) {
  const MemoryPackage package(conforming());
  package->getMIMEType();
  package.files.forget();
  EXPECT_EQ(kType, package->getMIMEType());
  EXPECT_EQ(0, package.files.count(support::FileCall::Open));
  EXPECT_EQ(1, package.files.filesAlive());
}

TEST(MIMEType, IsSetWithoutALineEnd) {
  const MemoryPackage package(missing(), nullptr, kIn | kOut);
  package->setMIMEType("text/plain");
  EXPECT_EQ("text/plain", contents(package, "mimetype"));
  EXPECT_EQ("text/plain", package->getMIMEType());
  EXPECT_EQ(pkg::CompressionStored, package->getFile("mimetype", true)->getCompressionMethod());
}

TEST(MIMEType, IsSetUpToItsFirstNul) {
  const MemoryPackage package(missing(), nullptr, kIn | kOut);
  package->setMIMEType(std::string("text/plain\0more", 15));
  EXPECT_EQ("text/plain", contents(package, "mimetype"));
}
