#include "Program.h"

// What few bytes of a file lead to again and again is not held as often.

namespace {

class Memory : public Qcfpkg {
protected:
  void SetUp() override {
#ifdef QCF_SANITIZED
    GTEST_SKIP() << "sanitizers reserve more memory than there is";
#endif
  }

  // The program in 128 MiB, its own code and libraries with it.
  support::Finished runInLittle(const std::string& arguments) const {
    return shell("ulimit -v 131072; exec \"$0\" " + arguments);
  }

  // Files of no data whose records all lead to one local header, of the longest name and extra
  // field that there are.
  void makeOneHeaderOfManyRecords(const std::string& package) const {
    auto entry = zipbytes::storedEntry(std::string(0xFFFF, '\xFF'), "");
    entry.localExtra = zipbytes::extraBlock(0x9999, std::string(0xFFFF - 4, 'x'));
    zipbytes::File file;
    file.raw(zipbytes::localHeader(entry));
    entry.localExtra.clear();
    for (int i = 0; i < 2000; ++i) {
      entry.name = std::to_string(i);
      file.list(entry);
    }
    folder.write(package, file.bytes());
  }
};

TEST_F(Memory, ALocalHeaderIsNotHeldForEachRecordThatLeadsToIt) {
  makeOneHeaderOfManyRecords("a.pkg");
  for (const char* const arguments : {"list a.pkg", "info a.pkg", "extract a.pkg -C out"}) {
    const auto finished = runInLittle(arguments);
    EXPECT_EQ(finished.status, 0) << arguments << finished.err;
  }
}

TEST_F(Memory, ALongNameIsNotHeldForEachFindingThatQuotesIt) {
  makeOneHeaderOfManyRecords("local.pkg");
  // Files that are a folder, too, in the data of the one that lies in it.
  auto entry = zipbytes::storedEntry("a", "");
  const std::string data = zipbytes::localHeader(entry) + "data";
  zipbytes::File file;
  file.add(zipbytes::storedEntry("a/" + std::string(0xFFFF - 2, '\xFF'), data), data);
  entry.offset = 30 + 0xFFFF;
  for (int i = 0; i < 2000; ++i)
    file.list(entry);
  folder.write("over.pkg", file.bytes());
  for (const std::string package : {"local.pkg", "over.pkg"}) {
    const auto finished = runInLittle("check " + package);
    EXPECT_EQ(finished.status, 1) << package << finished.err;
  }
}

}  // namespace
