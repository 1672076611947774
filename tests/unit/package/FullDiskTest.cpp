#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include <sched.h>
#include <sys/mount.h>

#include <gtest/gtest.h>

#include "package/QCFPackage.h"

#include "support/Raised.h"
#include "support/TempDir.h"
#include "support/ZipBytes.h"

// Saves onto a disk of the system's own that is full to the last byte. Other suites have the disk
// in memory, or a limit on the size of files.

namespace {

using std::ios;
using support::ioError;
using support::misuse;
using support::nothing;
using support::raised;
using Package = boost::shared_ptr<pkg::IPackage<>>;

class FullDisk : public testing::Test {
protected:
  // The disk is seen by this process only.
  void SetUp() override {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", fDisk.path().c_str(), "tmpfs", 0, "size=128k") != 0) {
      GTEST_SKIP() << "may not mount a disk: " << std::strerror(errno);
    }
    fIsMounted = true;
  }
  ~FullDisk() override {
    if (fIsMounted) ::umount2(fDisk.path().c_str(), MNT_DETACH);
  }

  // A package of one entry; another file takes what room is left.
  Package openAmongOthers(const std::string& content) {
    zipbytes::File file;
    fOld = file.add(zipbytes::storedEntry("a", content), content).bytes();
    const std::string path = fDisk.write("old.pkg", fOld);
    std::ofstream filler(fDisk / "filler");
    filler << std::string(1 << 20, 'x') << std::flush;
    EXPECT_TRUE(filler.fail());
    return pkg::QCFPackageFactory().openPackage(path, ios::in | ios::out, nullptr, nullptr,
                                                nullptr);
  }
  void saveAsNew(const Package& package) const {
    package->saveAs((fDisk / "new.pkg").string(), ios::in | ios::out | ios::trunc);
  }
  void expectOldAndThenNew(const Package& package) const {
    EXPECT_EQ(fDisk.read("old.pkg"), fOld);
    EXPECT_NE(fDisk.read("new.pkg"), fOld);
    std::filesystem::remove(fDisk / "filler");
    EXPECT_EQ(raised([&] { saveAsNew(package); }), nothing());
    package->close();
    EXPECT_EQ(fDisk.read("old.pkg"), fOld);
    EXPECT_EQ(fDisk.read("new.pkg").size(), fOld.size());
  }

  support::TempDir fDisk;
  std::string fOld;
  bool fIsMounted = false;
};

TEST_F(FullDisk, AnEntryWithoutRoomForItsCopyRaises29AndTheSaveIsDoneOnceThereIsRoom) {
  const Package package = openAmongOthers(std::string(40000, 'a'));
  EXPECT_EQ(raised([&] { saveAsNew(package); }), ioError(29));
  EXPECT_EQ(raised([&] { package->cancelUpdate(); }), nothing());
  expectOldAndThenNew(package);
}

// All that is written waits in a buffer until the directory is there, and the update over.
TEST_F(FullDisk, ADirectoryWithoutRoomRaises50AndTheSaveIsDoneOnceThereIsRoom) {
  const Package package = openAmongOthers("a");
  try {
    saveAsNew(package);
    ADD_FAILURE() << "there was room";
  } catch (pkg::PackageIOException<>& e) {
    EXPECT_EQ(e.getErrorCode(), 50);
    EXPECT_STREQ(e.what(), std::strerror(ENOSPC));
  }
  EXPECT_EQ(raised([&] { package->cancelUpdate(); }), misuse(37));
  expectOldAndThenNew(package);
}

}  // namespace
