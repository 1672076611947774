#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "crash/SystemCalls.h"
#include "support/Run.h"
#include "support/ZipBytes.h"

// What the suites share in which the programs run while something goes wrong.
namespace crash {

inline bool isLong() {
  const char* const text = std::getenv("QCF_LONG_TESTS");
  return text != nullptr && std::string(text) == "1";
}

// In the short form, the first of them.
inline std::vector<int> errorsFor(const Call& call) {
  const bool changes = call.effect == Effect::Changes;
  const int first = changes ? ENOSPC : EIO;
  return isLong() ? std::vector<int>{first, changes ? EIO : ENOMEM} : std::vector<int>{first};
}

// Where temporary folders are made: in memory where the system has such a place. These suites sync
// some thousand times, and what a sync is worth they find by other means than a disk.
class TemporaryInMemory {
public:
  TemporaryInMemory() {
    constexpr const char* kInMemory = "/dev/shm";
    if (access(kInMemory, W_OK | X_OK) == 0) setenv("TMPDIR", kInMemory, 1);
  }
};

// Files to work on in a folder of its own, and what must be true of them whatever has gone wrong.
class ProgramTrial : public testing::Test {
protected:
  using Environment = std::vector<std::pair<std::string, std::string>>;

  void SetUp() override {
    prepare();
    for (const std::string& name : files())
      fInitial[name] = fFolder.read(name);
    for (const std::string& name : files())
      std::filesystem::permissions(fFolder / name, kOwners);
    fInitialFolders = folders();
  }

  support::Command command(const char* program, std::vector<std::string> arguments,
                           Environment more = {}) const {
    arguments.insert(arguments.begin(), program);
    more.insert(more.end(), fEnvironment.begin(), fEnvironment.end());
    return {std::move(arguments), {}, fFolder.path(), std::move(more)};
  }

  std::vector<std::string> files() const { return names(false); }
  std::vector<std::string> folders() const { return names(true); }
  void restore() const {
    const std::vector<std::string> now = folders();
    for (auto folder = now.rbegin(); folder != now.rend(); ++folder) {
      const bool isOld =
          std::binary_search(fInitialFolders.begin(), fInitialFolders.end(), *folder);
      if (!isOld) std::filesystem::remove_all(fFolder / *folder);
    }
    for (const std::string& name : files()) {
      if (fInitial.count(name) == 0) std::filesystem::remove(fFolder / name);
    }
    for (const auto& [name, bytes] : fInitial) {
      fFolder.write(name, bytes);
      std::filesystem::permissions(fFolder / name, kOwners);
    }
  }
  // Nobody else's.
  static constexpr auto kOwners =
      std::filesystem::perms::owner_read | std::filesystem::perms::owner_write;
  std::filesystem::perms rightsTo(const std::string& name) const {
    return std::filesystem::status(fFolder / name).permissions();
  }

  static void expectToldOnce(const support::Finished& finished) {
    EXPECT_EQ(finished.status, 3) << finished.err;
    EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
    const bool own =
        finished.err.rfind("qcfpkg: ", 0) == 0 || finished.err.rfind("qsndhost: ", 0) == 0;
    EXPECT_TRUE(own) << finished.err;
    EXPECT_EQ(finished.err.find("std::"), std::string::npos) << finished.err;
  }
  // Of a call into the system; in one line, or one for each document that it hits.
  static void expectToldAsFailed(const support::Finished& finished, long mostLines = 1) {
    EXPECT_EQ(finished.status, 3) << finished.err;
    const auto lines = std::count(finished.err.begin(), finished.err.end(), '\n');
    EXPECT_TRUE(lines >= 1 && lines <= mostLines) << finished.err;
    EXPECT_NE(finished.err.find(": cannot "), std::string::npos) << finished.err;
    for (const char* const noReason : {"Success", "filesystem error"})
      EXPECT_EQ(finished.err.find(noReason), std::string::npos) << finished.err;
  }

  const TemporaryInMemory fInMemory;
  support::TempDir fFolder;
  Environment fEnvironment;
  std::map<std::string, std::string> fInitial;
  std::vector<std::string> fInitialFolders;

private:
  // Sorted; below the folder.
  std::vector<std::string> names(bool areFolders) const {
    std::vector<std::string> all;
    for (const auto& item : std::filesystem::recursive_directory_iterator(fFolder.path())) {
      if (item.is_symlink()) continue;
      if (areFolders ? !item.is_directory() : !item.is_regular_file()) continue;
      all.push_back(item.path().lexically_relative(fFolder.path()).string());
    }
    std::sort(all.begin(), all.end());
    return all;
  }
  static std::string text() {
    std::string text;
    for (int i = 0; i < 900; ++i)
      text += "some text ";
    return text;
  }
  // Stereo, 16 bits, 8 kHz: 3,000 frames of noise.
  static std::string wave() {
    constexpr std::uint32_t kSize = 12000;
    std::mt19937 random(1);
    std::string data(kSize, '\0');
    for (char& byte : data)
      byte = static_cast<char>(random());
    using zipbytes::u16;
    using zipbytes::u32;
    return "RIFF" + u32(36 + kSize) + "WAVEfmt " + u32(16) + u16(1) + u16(2) + u32(8000) +
           u32(32000) + u16(4) + u16(16) + "data" + u32(kSize) + data;
  }
  void must(const char* program, std::vector<std::string> arguments) const {
    support::mustRun(command(program, std::move(arguments)));
  }
  void prepare() {
    // Under a tracer there is no looking for leaks.
    fEnvironment = {{"XDG_CACHE_HOME", (fFolder / "cache").string()},
                    {"TMPDIR", (fFolder / "temporary").string()},
                    {"ASAN_OPTIONS", "detect_leaks=0"}};
    fFolder.write("input", "input");
    for (const char* const folder : {"folder/below", "temporary", "there/folder"})
      std::filesystem::create_directories(fFolder / folder);
    fFolder.write("folder/below/input", "input");
    fFolder.write("in.wav", wave());
    for (const char* const name : {"text", "folder/text"})
      fFolder.write(name, text());
    must(QCFPKG, {"create", "--type", "a/b", "a.pkg", "input", "one=in.wav", "two=text"});
    must(QCFPKG, {"add", "--in-place", "--store", "a.pkg", "dead=text"});
    must(QCFPKG, {"remove", "--in-place", "a.pkg", "dead"});  // something for compact to do
    must(QCFPKG,
         {"create", "--type", "a/b", "tree.pkg", "one=in.wav", "deep/er/file=input", "folder"});
    must(QCFPKG, {"comment", "--in-place", "tree.pkg", "a comment"});
    must(QSNDHOST, {"make", "in.wav", "out.qsnd", "--type", "application/x-old"});
    must(QSNDHOST, {"make", "in.wav", "in.qsnd", "--deflate"});
    for (const char* const name : {"out.wav", "out.png", "there/one", "there/folder/text"})
      fFolder.write(name, "what was here");
    std::filesystem::create_symlink("a.pkg", fFolder / "link.pkg");
    std::filesystem::create_symlink("out.wav", fFolder / "link.wav");
  }
};

}  // namespace crash
