#include "unit/writing/Writing.h"

// The rules of the "mimetype" entry, for those who write.

namespace {

using namespace writing;

class ConformanceRules : public Writing {
protected:
  static Bytes conforming() {
    zipbytes::File old;
    old.add(storedEntry("mimetype", "text/plain"), "text/plain");
    old.add(storedEntry("a.txt", "alpha"), "alpha");
    return old.bytes();
  }
  static Bytes deflatedType() {
    zipbytes::File old;
    old.add(deflatedEntry("mimetype", "text/plain"), deflated("text/plain"));
    old.add(storedEntry("a.txt", "alpha"), "alpha");
    return old.bytes();
  }
};

TEST_F(ConformanceRules, ARepairedPackageGoesOnAnswering46UntilItIsOpenedAgain) {
  fPolicies.conformance = 1;
  const Package package = open(deflatedType());
  EXPECT_EQ(package->checkConformance(), 46);
  EXPECT_EQ(package->getMIMEType(), "text/plain");
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(package->checkConformance(), 46);
  EXPECT_EQ(open(bytes())->checkConformance(), 0);
}

TEST_F(ConformanceRules, WithoutBit0AnInvalidTypeIsNeitherRepairedNorRefused) {
  const Package package = open(deflatedType());
  EXPECT_EQ(package->checkConformance(), 46);
  EXPECT_FALSE(package->isModified());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(u16At(bytes(), 8), 8u);
}

// Two records of the name: the entry is bound to the first, wherever it lies, so that the repair
// finds its own record.
TEST_F(ConformanceRules, OfTwoTypesTheFirstIsRepairedAndTheSecondStays) {
  fPolicies.conformance = 1;
  zipbytes::File old;
  old.add(storedEntry("a.txt", "alpha"), "alpha");
  old.add(storedEntry("mimetype", "first"), "first");
  old.add(storedEntry("mimetype", "second"), "second");
  const Package package = open(old.bytes());
  EXPECT_EQ(package->checkConformance(), 46);
  EXPECT_EQ(package->getMIMEType(), "first");
}

TEST_F(ConformanceRules, CreateConformingPackageInAnUpdateHasWrittenTheTypeFirst) {
  fPolicies.conformance = 1;
  const Package package =
      fFactory.createConformingPackage("new.pkg", "text/plain", true, fFiles, &fPolicies, nullptr);
  EXPECT_EQ(bytes().substr(30), "mimetypetext/plain");
  EXPECT_RAISED("35", package->beginUpdate());
  write(package, "a.txt", "alpha", CompressionStored);
  package->endUpdate();
  const Package again = open(bytes());
  EXPECT_EQ(again->checkConformance(), 0);
  EXPECT_EQ(again->getMIMEType(), "text/plain");
}

TEST_F(ConformanceRules, CreateConformingPackageOutsideAnUpdateLeavesTheTypeToTheNextSave) {
  const Package package =
      fFactory.createConformingPackage("new.pkg", "text/plain", false, fFiles, nullptr, nullptr);
  EXPECT_RAISED("37", package->endUpdate());
  EXPECT_TRUE(package->isModified());
  EXPECT_EQ(package->getMIMEType(), "text/plain");
  EXPECT_EQ(bytes(), "");
}

TEST_F(ConformanceRules, CreateConformingPackageEmptiesAFileThatIsThere) {
  fMemory.put("new.pkg", conforming());
  fFactory.createConformingPackage("new.pkg", "text/plain", false, fFiles, nullptr, nullptr);
  EXPECT_EQ(bytes(), "");
}

TEST_F(ConformanceRules, TheTypeOfAValidPackageChangesInsideAnUpdateAndOnce) {
  fPolicies.conformance = 1;
  const Package package = open(conforming());
  EXPECT_RAISED("45", package->setMIMEType("text/html"));
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  // Its old entry was copied, and that was the one writing.
  EXPECT_RAISED("45", package->setMIMEType("text/html"));
  package->cancelUpdate();
  package->beginUpdate();
  package->setMIMEType("text/html");
  EXPECT_RAISED("45", package->setMIMEType("text/css"));
  package->endUpdate();
  EXPECT_EQ(package->getMIMEType(), "text/html");
}

TEST_F(ConformanceRules, UnderBit0TheTypeCannotBeRemoved) {
  fPolicies.conformance = 1;
  const Package package = open(conforming());
  EXPECT_RAISED("45", package->getFile("mimetype", true)->remove());
  EXPECT_NO_THROW(package->getFile("a.txt", true)->remove());
  EXPECT_EQ(package->getMIMEType(), "text/plain");
}

TEST_F(ConformanceRules, ATypeThatCannotBeWrittenRaises) {
  support::FailingFileSystem full(fMemory, 1, {support::Failure::Write},
                                  support::FailingFileSystem::Span::FromThereOn);
  EXPECT_RAISED("IO 50", fFactory.createConformingPackage("new.pkg", "text/plain", true, &full,
                                                          nullptr, nullptr));
  EXPECT_RAISED("IO 50", fFactory.createConformingPackage("new.pkg", "text/plain", false, &full,
                                                          nullptr, nullptr));
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
}

TEST_F(ConformanceRules, ARepairedTypeThatASaveHasWrittenFirstIsNotWrittenAgainInIt) {
  fPolicies.conformance = 1;
  const Package package = open(deflatedType());
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  EXPECT_RAISED("45", package->setMIMEType("text/html"));
  package->endUpdate();
  EXPECT_EQ(package->getMIMEType(), "text/plain");
}

}  // namespace
