#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/Run.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using support::Finished;
using support::TempDir;

struct Answer {
  std::string directory;
  std::string file;  // the path of a temporary file of the library, or "error" and its code
};

// The glue in a process of its own, whose user directories are under a scratch folder.
class MacTemporaryItems : public testing::Test {
protected:
  MacTemporaryItems() { fs::create_directories(fLibrary); }

  fs::path caches() const { return fLibrary / "Caches"; }
  fs::path items() const { return caches() / "TemporaryItems"; }

  // `user` is in front of the program's name: who is to run it.
  Answer ask(std::vector<std::string> user = {}) {
    fFolder.write("gnustep.conf",
                  "GNUSTEP_USER_DIR_LIBRARY=" + fLibrary.string() +
                      "\nGNUSTEP_USER_DEFAULTS_DIR=" + (fFolder / "defaults").string() + "\n");
    user.push_back(MAC_TEMPORARY_ITEMS);
    const Finished finished = support::run({std::move(user),
                                            {},
                                            {},
                                            {{"GNUSTEP_CONFIG_FILE", fFolder / "gnustep.conf"},
                                             // Foundation keeps its constants to the end.
                                             {"ASAN_OPTIONS", "detect_leaks=0"}}});
    EXPECT_EQ(finished.status, 0) << finished.err;
    std::istringstream lines(finished.out);
    Answer answer;
    std::getline(lines, answer.directory);
    std::getline(lines, answer.file);
    return answer;
  }

  // The glue found no directory, and the library makes no temporary file.
  void expectNone(const Answer& answer) {
    EXPECT_EQ(answer.directory, "as it was");
    EXPECT_EQ(answer.file, "error 48");
  }

  TempDir fFolder;
  fs::path fLibrary = fFolder / "home/Library";  // the user's Library folder
};

TEST_F(MacTemporaryItems, TheFolderIsMadeInTheUsersCaches) {
  fs::create_directory(caches());
  EXPECT_EQ(ask().directory, items());
  EXPECT_TRUE(fs::is_directory(items()));
}

TEST_F(MacTemporaryItems, AFolderThatIsThereIsUsedWithWhatItHolds) {
  fs::create_directories(items() / "of another program");
  EXPECT_EQ(ask().directory, items());
  EXPECT_TRUE(fs::is_directory(items() / "of another program"));
}

TEST_F(MacTemporaryItems, ALinkToAFolderIsAFolder) {
  fs::create_directory(caches());
  fs::create_directory(fFolder / "elsewhere");
  fs::create_directory_symlink(fFolder / "elsewhere", items());
  EXPECT_EQ(ask().directory, items());
}

TEST_F(MacTemporaryItems, APlainFileInTheWayLeavesNothing) {
  fs::create_directory(caches());
  fFolder.write("home/Library/Caches/TemporaryItems", "a file");
  expectNone(ask());
  EXPECT_EQ(fFolder.read("home/Library/Caches/TemporaryItems"), "a file");
}

TEST_F(MacTemporaryItems, WithoutTheCachesFolderThereIsNothingAndNoParentIsMade) {
  expectNone(ask());
  EXPECT_FALSE(fs::exists(caches()));
}

// Root may write everywhere, so it steps back to somebody who owns the folders and nothing else.
TEST_F(MacTemporaryItems, ACachesFolderThatCannotBeWrittenLeavesNothing) {
  fs::create_directory(caches());
  std::vector<std::string> user;
  if (::geteuid() == 0) {
    constexpr uid_t kNobody = 65534;
    user = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
    for (const fs::path& folder : {fFolder.path(), fLibrary.parent_path(), fLibrary, caches()})
      ASSERT_EQ(::chown(folder.c_str(), kNobody, kNobody), 0);
    std::vector<std::string> canStepBack = user;
    canStepBack.insert(canStepBack.end(),
                       {"test", "-x", MAC_TEMPORARY_ITEMS, "-a", "-w", caches()});
    if (!support::run({canStepBack}).succeeded()) {
      GTEST_SKIP() << "root cannot step back to somebody who reaches " << caches();
    }
  }
  ASSERT_EQ(ask(user).directory, items()) << "while it can be written";
  fs::remove_all(items());
  fs::permissions(caches(), fs::perms::owner_read | fs::perms::owner_exec);
  expectNone(ask(user));
  EXPECT_TRUE(fs::is_empty(caches()));
}

TEST_F(MacTemporaryItems, ACachesFolderThatIsAPlainFileLeavesNothing) {
  fFolder.write("home/Library/Caches", "a file");
  expectNone(ask());
}

TEST_F(MacTemporaryItems, ALinkToNowhereIsNoFolder) {
  fs::create_directory(caches());
  fs::create_symlink(fFolder / "nowhere", items());
  expectNone(ask());
}

TEST_F(MacTemporaryItems, TheLibrarysTemporaryFilesLieInIt) {
  fs::create_directory(caches());
  const std::string file = ask().file;
  EXPECT_EQ(fs::path(file).parent_path(), items());
  EXPECT_TRUE(std::regex_match(fs::path(file).filename().string(),
                               std::regex("qcf[0-9A-F]{5,8}[0-9A-F]{4}")))
      << file;
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0600u);
}

}  // namespace
