#include "golden/Golden.h"
#include "golden/Readers.h"

// Packages whose first entry opening puts right, and the next save writes.

namespace {

using namespace golden;
using pkg::CompressionStored;

constexpr char kType[] = "application/x-test";

class Conformance : public Golden {
protected:
  Conformance() { fPolicies.conformance = 1; }
};

TEST_F(Conformance, ADeflatedMimetypeIsWrittenFirstAndStored) {
  zipbytes::File old;
  old.add(deflatedEntry("mimetype", kType), deflated(kType));
  old.add(storedEntry("a.txt", "alpha"), "alpha");
  const Package package = open(old.bytes());
  EXPECT_EQ(package->checkConformance(), pkg::PkgLib_Err_InvalidMimetype);
  EXPECT_TRUE(sameBytes(old.bytes(), bytes("old.pkg")));
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  zipbytes::File expected;
  expected.add(storedEntry("mimetype", kType), kType);
  expected.add(storedEntry("a.txt", "alpha"), "alpha");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
  EXPECT_EQ(package->checkConformance(), pkg::PkgLib_Err_InvalidMimetype);
}

TEST_F(Conformance, AMimetypeBehindOtherEntriesComesToTheFront) {
  zipbytes::File old;
  old.add(storedEntry("a.txt", "alpha"), "alpha");
  old.add(storedEntry("mimetype", kType), kType);
  old.add(storedEntry("b.txt", "beta"), "beta");
  const Package package = open(old.bytes());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  zipbytes::File expected;
  expected.add(storedEntry("mimetype", kType), kType);
  expected.add(storedEntry("a.txt", "alpha"), "alpha");
  expected.add(storedEntry("b.txt", "beta"), "beta");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));

  const Package again = open(bytes());
  EXPECT_EQ(again->checkConformance(), pkg::PkgLib_Err_None);
  EXPECT_EQ(again->getMIMEType(), kType);
}

// Kept entries stay where they are, so the repaired entry cannot come first: it is appended, and
// the package is as invalid as before.
TEST_F(Conformance, InPlaceARepairedMimetypeIsAppended) {
  zipbytes::File old;
  old.add(deflatedEntry("mimetype", kType), deflated(kType));
  old.add(storedEntry("a.txt", "alpha"), "alpha");
  const std::uint32_t atA = static_cast<std::uint32_t>(old.bytes().find("a.txt") - 30);
  const Package package = open(old.bytes());
  package->doUNSAFEUpdateInPlace();

  zipbytes::File expected;
  expected.raw(old.bytes().substr(0, old.offset()));
  Entry a = storedEntry("a.txt", "alpha");
  a.offset = atA;
  expected.list(a);
  expected.add(storedEntry("mimetype", kType), kType);
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes("old.pkg")));
}

TEST_F(Conformance, AMissingMimetypeIsWrittenFirstOnceTheClientHasGivenAType) {
  zipbytes::File old;
  old.add(storedEntry("a.txt", "alpha"), "alpha");
  const Package package = open(old.bytes());
  package->setMIMEType(kType);
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  zipbytes::File expected;
  expected.add(storedEntry("mimetype", kType), kType);
  expected.add(storedEntry("a.txt", "alpha"), "alpha");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

TEST_F(Conformance, TheTypeOfAConformingPackageChangesInsideAnUpdate) {
  zipbytes::File old;
  old.add(storedEntry("mimetype", kType), kType);
  old.add(storedEntry("a.txt", "alpha"), "alpha");
  const Package package = open(old.bytes());
  package->beginUpdate();
  package->setMIMEType("text/plain");
  package->endUpdate();

  // Only what the update wrote is listed, and it lies behind the old file.
  zipbytes::File expected;
  expected.raw(old.bytes());
  expected.add(storedEntry("mimetype", "text/plain"), "text/plain");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes("old.pkg")));
}

}  // namespace
