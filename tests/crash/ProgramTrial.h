#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "failures/Listing.h"
#include "support/Run.h"

// What the suites share in which the programs run while something goes wrong.
namespace crash {

struct Change {
  const char* name;
  const char* program;
  std::vector<std::string> arguments;
  std::string output;
  std::vector<std::string> next;  // a later run that writes the same file
};

inline void PrintTo(const Change& change, std::ostream* out) {
  *out << change.name;
}

inline bool isLong() {
  const char* const text = std::getenv("QCF_LONG_TESTS");
  return text != nullptr && std::string(text) == "1";
}

// What there is to tell one package, or another file, from the next. Times are left out.
struct State {
  failures::Listing listing;
  std::string rest;  // all of what is no package, the size of what is

  friend bool operator==(const State& a, const State& b) {
    return a.listing == b.listing && a.rest == b.rest;
  }
};

inline State stateOf(const std::string& bytes) {
  try {
    return {failures::listed(bytes), std::to_string(bytes.size())};
  } catch (const std::exception&) {
    return {{}, bytes};
  }
}

// Files to work on in a folder of its own, and what must be true of them whatever has gone wrong.
class ProgramTrial : public testing::TestWithParam<Change> {
protected:
  void SetUp() override {
    prepare();
    for (const std::string& name : files())
      fInitial[name] = fFolder.read(name);
    fOld = outputState();
  }

  // The output, where there is one.
  std::vector<std::string> bytesOf(const std::string& name) const {
    if (!std::filesystem::exists(fFolder / name)) return {};
    return {fFolder.read(name)};
  }
  std::vector<State> outputState() const {
    std::vector<State> states;
    for (const std::string& bytes : bytesOf(GetParam().output))
      states.push_back(stateOf(bytes));
    return states;
  }
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& item : std::filesystem::recursive_directory_iterator(fFolder.path())) {
      if (!item.is_regular_file()) continue;
      names.push_back(item.path().lexically_relative(fFolder.path()).string());
    }
    return names;
  }
  // What nobody asked for.
  std::vector<std::string> leftovers() const {
    std::vector<std::string> names;
    for (const std::string& name : files()) {
      if (fInitial.count(name) == 0 && name != GetParam().output) names.push_back(name);
    }
    return names;
  }
  void restore() const {
    for (const std::string& name : files()) {
      if (fInitial.count(name) == 0) std::filesystem::remove(fFolder / name);
    }
    for (const auto& [name, bytes] : fInitial)
      fFolder.write(name, bytes);
  }

  // Returns whether the new file is there, which must be whole where the old one isn't.
  bool expectOldOrNew() const {
    const std::vector<State> left = outputState();
    EXPECT_TRUE(left == fOld || left == fNew);
    return left == fNew;
  }
  void expectTold(const support::Finished& finished) const {
    EXPECT_EQ(finished.status, 3) << finished.err;
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
    EXPECT_NE(finished.err.find(": cannot "), std::string::npos) << finished.err;
    EXPECT_EQ(finished.err.find("Success"), std::string::npos) << finished.err;
  }

  support::TempDir fFolder;
  std::vector<std::pair<std::string, std::string>> fEnvironment;
  std::map<std::string, std::string> fInitial;
  std::vector<State> fOld, fNew;

private:
  void must(std::vector<std::string> arguments) const {
    support::mustRun({std::move(arguments), {}, fFolder.path(), fEnvironment});
  }
  void prepare() {
    // Under a tracer there is no looking for leaks.
    fEnvironment = {{"XDG_CACHE_HOME", (fFolder / "cache").string()},
                    {"ASAN_OPTIONS", "detect_leaks=0"}};
    fFolder.write("input", "input");
    std::filesystem::create_directories(fFolder / "folder/below");
    fFolder.write("folder/below/input", "input");
    support::python(
        "import random, wave\n"
        "random.seed(1)\n"
        "with wave.open('in.wav', 'wb') as w:\n"
        "    w.setparams((2, 2, 8000, 0, 'NONE', ''))\n"
        "    w.writeframes(random.randbytes(12000))\n"
        "for name in 'text', 'folder/text':\n"
        "    open(name, 'w').write('some text ' * 900)\n",
        {}, fFolder.path());
    must({QCFPKG, "create", "--type", "a/b", "a.pkg", "input", "one=in.wav", "two=text"});
    must({QCFPKG, "add", "--in-place", "--store", "a.pkg", "dead=text"});
    must({QCFPKG, "remove", "--in-place", "a.pkg", "dead"});  // something for compact to do
    must({QSNDHOST, "make", "in.wav", "out.qsnd", "--type", "application/x-old"});
    must({QSNDHOST, "make", "in.wav", "in.qsnd", "--deflate"});
    fFolder.write("out.wav", "what was here");
  }
};

inline const std::vector<std::string> kNext = {"create", "--overwrite", "--type",
                                               "a/b",    "a.pkg",       "input"};
inline const std::vector<std::string> kNextNew = {"create", "--overwrite", "--type",
                                                  "a/b",    "new.pkg",     "input"};
inline const std::vector<std::string> kMake = {"make", "in.wav", "out.qsnd"};
inline const std::vector<std::string> kExport = {"export", "in.qsnd", "out.wav", "--format", "16"};

inline const std::vector<Change> kChanges = {
    {"add", QCFPKG, {"add", "a.pkg", "three=input"}, "a.pkg", kNext},
    {"remove", QCFPKG, {"remove", "a.pkg", "two"}, "a.pkg", kNext},
    {"compact", QCFPKG, {"--quiet", "compact", "a.pkg"}, "a.pkg", kNext},
    {"type", QCFPKG, {"type", "a.pkg", "c/d"}, "a.pkg", kNext},
    {"comment", QCFPKG, {"comment", "a.pkg", "words"}, "a.pkg", kNext},
    {"prop", QCFPKG, {"prop", "set", "a.pkg", "two", "mac-type", "TEXT"}, "a.pkg", kNext},
    {"create",
     QCFPKG,
     {"create", "--type", "a/b", "new.pkg", "one=in.wav", "folder"},
     "new.pkg",
     kNextNew},
    {"make", QSNDHOST, kMake, "out.qsnd", kMake},
    {"export", QSNDHOST, kExport, "out.wav", kExport}};

}  // namespace crash
