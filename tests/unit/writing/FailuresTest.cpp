#include <ostream>
#include <set>
#include <string>

#include "unit/writing/Writing.h"

// Each way to save, with the file system failing at its first call, its second, and so on until the
// save succeeds.

namespace {

using namespace writing;
using support::FailingFileSystem;
using support::Failure;

struct Way {
  std::string name;
  void (*save)(const Package&);
  bool intoAnotherFile;
};

void PrintTo(const Way& way, std::ostream* out) {
  *out << way.name;
}

class Failures : public testing::TestWithParam<Way> {
protected:
  Failures() {
    zipbytes::File old;
    old.add(storedEntry("mimetype", "text/plain"), "text/plain");
    old.add(deflatedEntry("a.txt", prose(30000)), deflated(prose(30000)));
    old.add(directoryEntry("d/"), "");
    old.add(storedEntry("gone.txt", "gone"), "gone");
    fOld = old.bytes();
  }

  // A change of every kind, saved. Returns what was raised.
  std::string changeAndSave(FailingFileSystem& files) {
    Package package;
    std::string what = raised([&] {
      package = pkg::QCFPackageFactory().openPackage("old", kIn | kOut, &files, nullptr, nullptr);
    });
    if (!what.empty()) return what;
    what = raised([&] {
      const Stream stream = openForWriting(package, "new.txt", CompressionDeflated);
      const Bytes text = prose(30000);
      stream->write(text.data(), static_cast<std::streamsize>(text.size()));
      stream->close();
      package->getDirectory("e", false)->create();
      package->getFile("gone.txt", true)->remove();
    });
    fSaving = what.empty();
    if (what.empty()) what = raised([&] { GetParam().save(package); });
    if (!what.empty()) checkRecovery(package, what);
    return what;
  }

  // After a failure an update that runs can be given up, and the old entries be read.
  void checkRecovery(const Package& package, const std::string& what) {
    const bool inUpdate = raised([&] { package->beginUpdate("x", kIn); }) == "35";
    if (inUpdate) {
      EXPECT_EQ(raised([&] { package->cancelUpdate(); }), "") << what;
    }
    EXPECT_EQ(contents(package, "mimetype"), "text/plain") << what;
    EXPECT_EQ(contents(package, "a.txt"), prose(30000)) << what;
    EXPECT_EQ(package->entryExists("d/"), pkg::PkgEntryDirectory) << what;
  }

  Bytes fOld;
  support::MemoryFileSystem fMemory;
  bool fSaving = false;
};

TEST_P(Failures, RaiseTheFileSystemsErrorAndLeaveNoTemporaryFile) {
  const std::set<std::string> expected = {"IO 50", "IO 29", ""};
  for (int n = 1;; ++n) {
    SCOPED_TRACE("call " + std::to_string(n));
    fMemory.put("old", fOld);
    fMemory.remove("new");
    FailingFileSystem files(fMemory, n, support::everyError());
    const std::string what = changeAndSave(files);
    EXPECT_EQ(expected.count(what), 1u) << what;
    EXPECT_EQ(fMemory.temporaryFiles(), 0);
    if (GetParam().intoAnotherFile) {
      EXPECT_EQ(fMemory.bytes("old"), fOld);
    }
    ASSERT_LT(n, 2000);
    if (!files.hasFailed()) {
      EXPECT_EQ(what, "");
      break;
    }
  }
}

// As on a full disk: nothing can be written from some call on.
TEST_P(Failures, OnAFullDiskTheOldFileStaysWhereTheOutputIsAnother) {
  for (int n = 1;; ++n) {
    SCOPED_TRACE("write " + std::to_string(n));
    fMemory.put("old", fOld);
    fMemory.remove("new");
    FailingFileSystem files(fMemory, n, {Failure::ShortWrite, Failure::Flush},
                            FailingFileSystem::Span::FromThereOn);
    const std::string what = changeAndSave(files);
    if (!files.hasFailed()) break;
    EXPECT_NE(what, "");
    EXPECT_EQ(fMemory.temporaryFiles(), 0);
    if (GetParam().intoAnotherFile || !fSaving) {
      EXPECT_EQ(fMemory.bytes("old"), fOld);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Ways, Failures,
    testing::Values(Way{"SaveAs", [](const Package& p) { p->saveAs("new", kIn | kOut | kTrunc); },
                        true},
                    Way{"BeginAndEndIntoAnotherFile",
                        [](const Package& p) {
                          p->beginUpdate("new", kIn | kOut | kTrunc);
                          write(p, "direct.txt", prose(20000));
                          p->endUpdate();
                        },
                        true},
                    Way{"InPlace", [](const Package& p) { p->doUNSAFEUpdateInPlace(); }, false},
                    Way{"BeginAndEnd",
                        [](const Package& p) {
                          p->beginUpdate();
                          write(p, "direct.txt", prose(20000));
                          p->endUpdate();
                        },
                        false}),
    [](const auto& suite) { return suite.param.name; });

class Transaction : public Writing {
protected:
  Transaction() {
    zipbytes::File old;
    old.add(storedEntry("a.txt", "alpha"), "alpha");
    fOld = old.bytes();
  }
  Bytes fOld;
};

TEST_F(Transaction, AnOutputThatCannotBeOpenedChangesNothing) {
  const Package package = open(fOld);
  EXPECT_RAISED("IO 23", package->beginUpdate("new.pkg", kOut | std::ios_base::app));
  EXPECT_RAISED("37", package->endUpdate());
  package->beginUpdate();  // goes to the package's own file, so nothing was set up for another
  EXPECT_EQ(package->getOpenMode(false), kIn | kOut);
}

TEST_F(Transaction, AFailedDirectoryLeavesThePackageUsableOnItsOldFile) {
  FailingFileSystem failing(fMemory, 1, {Failure::Flush});
  fFiles = &failing;
  const Package package = open(fOld);
  EXPECT_RAISED("IO 50", package->saveAs("new.pkg", kIn | kOut | kTrunc));
  EXPECT_RAISED("37", package->cancelUpdate());
  EXPECT_EQ(package->getOpenMode(true), kIn | kOut);
  EXPECT_EQ(contents(package, "a.txt"), "alpha");
  EXPECT_EQ(bytes("old.pkg"), fOld);
}

TEST_F(Transaction, AFailedInPlaceUpdateLeavesAFileWithoutADirectoryAndThePackageItsEntries) {
  FailingFileSystem failing(fMemory, 1, {Failure::Write}, FailingFileSystem::Span::FromThereOn);
  fFiles = &failing;
  const Package package = open(fOld);
  EXPECT_RAISED("IO 50", package->doUNSAFEUpdateInPlace());
  EXPECT_EQ(bytes("old.pkg"), fOld.substr(0, fOld.find("PK\x01\x02")));
  EXPECT_EQ(contents(package, "a.txt"), "alpha");
}

// What is left of a directory is the old one, in the middle of the file: a search without a limit
// comes upon it, and knows nothing of the update.
TEST_F(Transaction, AFailedDirectoryOfAnUpdateOfTheFileItselfLeavesAFileWithoutAValidDirectory) {
  for (const int n : {4, 5}) {  // after header, data and patch: a record, the end record
    FailingFileSystem failing(fMemory, n, {Failure::Write});
    fFiles = &failing;
    const Package package = open(fOld);
    package->beginUpdate();
    write(package, "b.txt", Bytes(70000, 'b'), CompressionStored);
    EXPECT_RAISED("IO 50", package->endUpdate());
    EXPECT_RAISED("37", package->cancelUpdate());
    EXPECT_EQ(contents(package, "a.txt"), "alpha");
    const Bytes left = bytes("old.pkg");
    EXPECT_EQ(left.substr(0, fOld.size()), fOld);
    EXPECT_EQ(left.rfind("PK\x05\x06"), fOld.rfind("PK\x05\x06")) << n;
    EXPECT_EQ(left.rfind("PK\x01\x02") > fOld.size(), n == 5);
    fFiles = &fMemory;
    const Package again = open(left, kIn, "copy.pkg");
    EXPECT_EQ(contents(again, "a.txt"), "alpha");
    EXPECT_EQ(again->entryExists("b.txt"), pkg::PkgEntryNone);
  }
}

TEST_F(Transaction, AFailureInTheQueueLeavesTheUpdateRunning) {
  FailingFileSystem failing(fMemory, 6, {Failure::Write});
  fFiles = &failing;
  const Package package = create();
  const Stream direct = openForWriting(package, "a.txt");
  *direct << "alpha";                                  // writes 1 and 2
  write(package, "b.txt", "beta", CompressionStored);  // write 3, into the spool
  direct->close();                                     // write 4, the patch
  EXPECT_RAISED("IO 29", package->endUpdate());  // write 5, the header; write 6, the data at close
  EXPECT_RAISED("35", package->beginUpdate());
  package->cancelUpdate();
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
}

// Files of it cannot be closed.
class Unclosable : public support::FileSystemWrapper {
public:
  using FileSystemWrapper::FileSystemWrapper;
  int closed = 0;
  int deleted = 0;

  void deleteTempFileByName(const FileName& name) override {
    ++deleted;
    FileSystemWrapper::deleteTempFileByName(name);
  }

protected:
  void close(InnerFile& file) override {
    ++closed;
    file.close();
    throw pkg::PackageIOException<>(pkg::PkgLib_Err_WritingFile);
  }
};

using WithoutClosing = Writing;

TEST_F(WithoutClosing, APackageThatGoesTakesItsTemporaryFilesAlong) {
  Unclosable files{fMemory};
  fFiles = &files;
  Package package = open(zipbytes::File().add(storedEntry("a", "alpha"), "alpha").bytes());
  const Stream stream = openForWriting(package, "a");
  *stream << "new";
  package.reset();
  EXPECT_EQ(files.closed, 1);
  EXPECT_EQ(files.deleted, 1);
}

}  // namespace
