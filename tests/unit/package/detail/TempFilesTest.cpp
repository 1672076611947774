#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "package/detail/PkgFileSys.h"

#include "support/Raised.h"
#include "support/TempDir.h"
#include "unit/package/detail/SystemCalls.h"

namespace {

using std::ios_base;
using support::ioError;
using support::raised;
using support::systemCalls;
using support::TempDir;

// An instance of its own: it looks the directory up as the shared one does when that is built.
class OwnFileSystem : public pkg::BasePkgFileSystem<> {
public:
  int opened = 0;
  File openFile(const FileName& name, ios_base::openmode mode) override {
    ++opened;
    return BasePkgFileSystem<>::openFile(name, mode);
  }
};

// An environment variable with another value, or none, for a while.
class Variable {
public:
  Variable(const char* name, std::optional<std::string> value) : fName(name) {
    if (const char* const old = std::getenv(name)) fOld = old;
    set(value);
  }
  ~Variable() { set(fOld); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

private:
  void set(const std::optional<std::string>& value) {
    if (value) {
      ::setenv(fName, value->c_str(), 1);
    } else {
      ::unsetenv(fName);
    }
  }
  const char* fName;
  std::optional<std::string> fOld;
};

class TempFiles : public testing::Test {
protected:
  std::string cache() const { return (fFolder / "cache").string(); }
  std::string items() const { return cache() + "/TemporaryItems/"; }
  static std::string nameOf(const boost::shared_ptr<pkg::IPkgFSFile<>>& file) {
    return file->getName()->getName();
  }
  static std::string newName(OwnFileSystem& system) {
    const auto file = system.createTempFile();
    return nameOf(file);
  }
  static unsigned int permissionsOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777u;
  }
  // Code 48, and nothing was tried.
  static void expectNoPlace() {
    OwnFileSystem system;
    int tries = 0;
    systemCalls().open = [&](const char*, int, unsigned int) {
      ++tries;
      errno = ENOENT;
      return -1;
    };
    std::string text;
    try {
      system.createTempFile();
    } catch (pkg::PackageIOException<>& e) {
      EXPECT_EQ(e.getErrorCode(), 48);
      text = e.what();
    }
    systemCalls().open = nullptr;
    EXPECT_EQ(text, "PKGLIB SAMPLE ERROR MESSAGE: Error Creating Temp File");
    EXPECT_EQ(tries, 0);
  }

  support::SystemCallsGuard fGuard;
  TempDir fFolder;
  Variable fCache{"XDG_CACHE_HOME", cache()};
};

TEST_F(TempFiles, LieInTheUsersCacheWhoseFoldersAreMadePrivate) {
  OwnFileSystem system;
  const std::string name = newName(system);
  EXPECT_EQ(name.rfind(items() + "qcf", 0), 0u) << name;
  EXPECT_EQ(permissionsOf(cache()), 0700u);
  EXPECT_EQ(permissionsOf(items()), 0700u);
}

TEST_F(TempFiles, AreReadableAndWritableForTheirUserAlone) {
  OwnFileSystem system;
  EXPECT_EQ(permissionsOf(newName(system)), 0600u);
}

TEST_F(TempFiles, AskTheSystemForANewFile) {
  OwnFileSystem system;
  std::vector<std::pair<int, unsigned int>> asked;
  systemCalls().open = [&](const char*, int flags, unsigned int permissions) {
    asked.emplace_back(flags, permissions);
    errno = EACCES;
    return -1;
  };
  EXPECT_EQ(raised([&] { system.createTempFile(); }), ioError(50));
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_EQ(asked[0].first & (O_ACCMODE | O_CREAT | O_EXCL), O_RDWR | O_CREAT | O_EXCL);
  EXPECT_EQ(asked[0].second, 0600u);
}

TEST_F(TempFiles, AreNamedAfterTheProcess) {
  OwnFileSystem system;
  char prefix[32];
  std::snprintf(prefix, sizeof prefix, "qcf%05X", static_cast<unsigned int>(::getpid()));
  for (int i = 0; i < 20; ++i) {
    const std::string name = newName(system).substr(items().size());
    EXPECT_TRUE(std::regex_match(name, std::regex(prefix + std::string("[0-9A-F]{4}")))) << name;
  }
}

// The four digits at the end of a name.
unsigned int mixedPart(const std::string& name) {
  return static_cast<unsigned int>(std::stoul(name.substr(name.size() - 4), nullptr, 16));
}

// The counter of the name that comes after `step` others, rotated as in the name.
unsigned int counted(unsigned int step) {
  const unsigned int count = (0u - static_cast<unsigned int>(::getpid()) + step) & 0xFFFF;
  return (count >> 4 | count << 12) & 0xFFFF;
}

TEST_F(TempFiles, CountFromTheNegatedProcessIdMixedWithASeed) {
  OwnFileSystem system;
  const unsigned int seed = mixedPart(newName(system)) ^ counted(0);
  EXPECT_NE(seed, 0u);
  for (unsigned int step = 1; step < 40; ++step) {
    EXPECT_EQ(mixedPart(newName(system)), counted(step) ^ seed) << step;
  }
}

TEST_F(TempFiles, TheSeedIsTheClockWithItsBytesSwappedMixedWithTheNegatedProcessId) {
  const unsigned int process = (0u - static_cast<unsigned int>(::getpid())) & 0xFFFF;
  systemCalls().clock = [] { return 0x12345678; };
  OwnFileSystem system;
  EXPECT_EQ(mixedPart(newName(system)) ^ counted(0), 0x7856u ^ process);
}

TEST_F(TempFiles, ASeedOfZeroIsReplacedByAllOnes) {
  const unsigned int process = (0u - static_cast<unsigned int>(::getpid())) & 0xFFFF;
  systemCalls().clock = [=] { return static_cast<long>((process >> 8 | process << 8) & 0xFFFF); };
  OwnFileSystem system;
  EXPECT_EQ(mixedPart(newName(system)) ^ counted(0), 0xFFFFu);
}

TEST_F(TempFiles, AnExistingFileIsNeverTaken) {
  OwnFileSystem system;
  const std::string first = newName(system);
  const unsigned int seed = mixedPart(first) ^ counted(0);
  const auto nameAfter = [&](unsigned int step) {
    char digits[8];
    std::snprintf(digits, sizeof digits, "%04X", counted(step) ^ seed);
    return first.substr(0, first.size() - 4) + digits;
  };
  ASSERT_EQ(::symlink("/dev/null", nameAfter(1).c_str()), 0);
  ASSERT_EQ(::symlink((fFolder / "nowhere").c_str(), nameAfter(2).c_str()), 0);
  ASSERT_EQ(::mkdir(nameAfter(3).c_str(), 0700), 0);
  EXPECT_EQ(newName(system), nameAfter(4));
  EXPECT_FALSE(std::filesystem::exists(fFolder / "nowhere"));
}

TEST_F(TempFiles, ANameThatExistsIsPassedOver) {
  OwnFileSystem system;
  std::vector<std::string> tried;
  systemCalls().open = [&](const char* path, int flags, unsigned int permissions) {
    tried.emplace_back(path);
    if (tried.size() <= 3) {
      errno = EEXIST;
      return -1;
    }
    systemCalls().open = nullptr;
    return ::open(path, flags, permissions);
  };
  const std::string name = nameOf(system.createTempFile());
  ASSERT_EQ(tried.size(), 4u);
  EXPECT_EQ(name, tried.back());
  EXPECT_EQ(std::set<std::string>(tried.begin(), tried.end()).size(), 4u);
}

TEST_F(TempFiles, WhenEveryNameExists48IsRaisedAfter65536Tries) {
  OwnFileSystem system;
  for (int round = 0; round < 2; ++round) {  // the counter wraps without harm
    std::set<std::string> tried;
    int tries = 0;
    systemCalls().open = [&](const char* path, int, unsigned int) {
      ++tries;
      tried.insert(path);
      errno = EEXIST;
      return -1;
    };
    EXPECT_EQ(raised([&] { system.createTempFile(); }), ioError(48));
    EXPECT_EQ(tries, 65536);
    EXPECT_EQ(tried.size(), 65536u) << "all of them different";
  }
}

TEST_F(TempFiles, AnyOtherRefusalRaises50AtOnceWithTheSystemsText) {
  OwnFileSystem system;
  for (const int error : {EACCES, EMFILE, ENOSPC, EROFS}) {
    int tries = 0;
    systemCalls().open = [&](const char*, int, unsigned int) {
      ++tries;
      errno = error;
      return -1;
    };
    try {
      system.createTempFile();
      FAIL() << "opened";
    } catch (pkg::PackageIOException<>& e) {
      EXPECT_EQ(e.getErrorCode(), 50);
      EXPECT_STREQ(e.what(), std::strerror(error));
    }
    EXPECT_EQ(tries, 1);
  }
}

TEST_F(TempFiles, AFolderThatDisappearsIsNotMadeAgain) {
  OwnFileSystem system;
  std::filesystem::remove_all(cache());
  try {
    system.createTempFile();
    FAIL() << "opened";
  } catch (pkg::PackageIOException<>& e) {
    EXPECT_EQ(e.getErrorCode(), 50);
    EXPECT_STREQ(e.what(), std::strerror(ENOENT));
  }
  EXPECT_FALSE(std::filesystem::exists(cache()));
}

TEST_F(TempFiles, WithoutAStreamTheFileIsRemovedAndItsDescriptorClosed) {
  OwnFileSystem system;
  int descriptor = -1;
  std::string mode;
  systemCalls().fdopen = [&](int given, const char* givenMode) {
    descriptor = given;
    mode = givenMode;
    errno = EMFILE;
    return nullptr;
  };
  EXPECT_EQ(raised([&] { system.createTempFile(); }), ioError(50));
  EXPECT_EQ(mode, "r+");
  EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1) << "closed";
  EXPECT_TRUE(std::filesystem::is_empty(items()));
}

TEST_F(TempFiles, WithoutAStreamTheTextIsThatOfTheLastCallThatFailed) {
  OwnFileSystem system;
  systemCalls().fdopen = [&](int, const char*) {
    std::filesystem::remove_all(items());  // so that removing the file fails after this
    errno = EMFILE;
    return nullptr;
  };
  try {
    system.createTempFile();
    FAIL() << "opened";
  } catch (pkg::PackageIOException<>& e) {
    EXPECT_STREQ(e.what(), std::strerror(ENOENT));
  }
}

TEST_F(TempFiles, ReopeningCallsAnOverriddenOpenFile) {
  OwnFileSystem system;
  const auto name = system.createTempFile()->getName();
  system.reopenTempFileByName(name, ios_base::in);
  EXPECT_EQ(system.opened, 1);
}

TEST_F(TempFiles, DeletingWhatCannotBeDeletedReturnsNormally) {
  OwnFileSystem system;
  ASSERT_TRUE(std::filesystem::create_directory(fFolder / "full"));
  fFolder.write("full/file", "x");
  system.deleteTempFileByName(system.getFSFileName((fFolder / "full").string()));
  EXPECT_TRUE(std::filesystem::exists(fFolder / "full" / "file"));
}

TEST_F(TempFiles, AreNotDeletedByClosing) {
  OwnFileSystem system;
  auto file = system.createTempFile();
  const std::string name = nameOf(file);
  file->close();
  file.reset();
  EXPECT_TRUE(std::filesystem::exists(name));
}

TEST_F(TempFiles, AShortWriteWithoutAnErrorRaises29) {
  OwnFileSystem system;
  const auto file = system.createTempFile();
  systemCalls().fwrite = [](std::size_t count) { return count - 1; };
  const support::Raised result = raised([&] { file->write("0123", 4); });
  systemCalls().fwrite = nullptr;
  EXPECT_EQ(result, ioError(29));
}

TEST_F(TempFiles, FoldersThatAreThereAreUsedAsTheyAre) {
  ASSERT_TRUE(std::filesystem::create_directories(items()));
  ASSERT_EQ(::chmod(items().c_str(), 0750), 0);
  OwnFileSystem system;
  EXPECT_EQ(newName(system).rfind(items(), 0), 0u);
  EXPECT_EQ(permissionsOf(items()), 0750u);
}

TEST_F(TempFiles, APlainFileInTheWayOfTheirFolderRaises48) {
  ASSERT_TRUE(std::filesystem::create_directory(cache()));
  fFolder.write("cache/TemporaryItems", "in the way");
  expectNoPlace();
  EXPECT_EQ(fFolder.read("cache/TemporaryItems"), "in the way");
}

TEST_F(TempFiles, APlainFileInTheWayOfTheCacheRaises48) {
  fFolder.write("cache", "in the way");
  expectNoPlace();
}

TEST_F(TempFiles, ACacheThatCannotBeMadeRaises48) {
  const Variable elsewhere("XDG_CACHE_HOME", (fFolder / "missing" / "cache").string());
  expectNoPlace();
}

TEST_F(TempFiles, ACacheGivenWithATrailingSlashServes) {
  const Variable elsewhere("XDG_CACHE_HOME", cache() + "/");
  OwnFileSystem system;
  EXPECT_TRUE(std::filesystem::exists(newName(system)));
}

TEST_F(TempFiles, WithoutACacheVariableTheHomesOneIsTaken) {
  const Variable home("HOME", fFolder.path().string());
  for (const std::optional<std::string>& cacheHome :
       {std::optional<std::string>(), std::optional<std::string>(""),
        std::optional<std::string>("relative/cache")}) {
    const Variable none("XDG_CACHE_HOME", cacheHome);
    OwnFileSystem system;
    EXPECT_EQ(newName(system).rfind((fFolder / ".cache/TemporaryItems/qcf").string(), 0), 0u);
  }
}

TEST_F(TempFiles, WithoutAHomeVariableTheUsersRecordTellsTheHome) {
  const Variable none("XDG_CACHE_HOME", {});
  systemCalls().home = [&] { return fFolder.path().string(); };
  for (const std::optional<std::string>& home :
       {std::optional<std::string>(), std::optional<std::string>("")}) {
    const Variable noHome("HOME", home);
    OwnFileSystem system;
    EXPECT_EQ(newName(system).rfind((fFolder / ".cache/TemporaryItems/qcf").string(), 0), 0u);
  }
}

TEST_F(TempFiles, AUserWithoutAnyHomeRaises48) {
  const Variable none("XDG_CACHE_HOME", {});
  const Variable noHome("HOME", {});
  systemCalls().home = [] { return std::string(); };
  expectNoPlace();
}

}  // namespace
