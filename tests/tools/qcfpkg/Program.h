#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/Run.h"
#include "support/TempDir.h"
#include "support/ZipBytes.h"

// The program in a folder of its own, and independent readers of what it makes.
class Qcfpkg : public testing::Test {
protected:
  using Contents = std::map<std::string, std::string>;

  support::Finished run(std::vector<std::string> arguments, const std::string& input = {}) const {
    arguments.insert(arguments.begin(), QCFPKG);
    return support::run({arguments, input, folder.path(), environment});
  }
  // Runs what has to go well and say nothing on standard error.
  std::string must(const std::vector<std::string>& arguments, const std::string& input = {}) const {
    const auto finished = run(arguments, input);
    EXPECT_EQ(finished.status, 0) << finished.err;
    EXPECT_EQ(finished.err, "");
    return finished.out;
  }
  // Starts the program, quiet, and returns its process. It may be killed: the counters of a build
  // that counts what is reached (QCF_COVERAGE) stay out of reach, or they would be left in pieces.
  pid_t start(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"env", "GCOV_PREFIX=/dev/null", QCFPKG, "--quiet"});
    std::vector<char*> pointers;
    for (std::string& argument : arguments)
      pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    const pid_t child = fork();
    if (child != 0) return child;
    if (chdir(folder.path().c_str()) != 0) _exit(126);
    execvp("env", pointers.data());
    _exit(127);
  }

  // Runs a shell command in which $0 is the program.
  support::Finished shell(const std::string& command) const {
    return support::run({{"sh", "-c", command, QCFPKG}, {}, folder.path(), environment});
  }
  // A failure: this status, nothing on standard output, one line that holds `words`.
  void expectFailure(const std::vector<std::string>& arguments, int status,
                     const std::string& words) const {
    const auto finished = run(arguments);
    EXPECT_EQ(finished.status, status) << arguments[0];
    EXPECT_EQ(finished.out, "") << arguments[0];
    EXPECT_EQ(finished.err.find("qcfpkg: "), 0u) << finished.err;
    EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
    EXPECT_NE(finished.err.find(words), std::string::npos) << finished.err;
  }

  // What python3 finds in a package, in order of names.
  Contents contents(const std::string& package) const {
    Contents contents;
    for (const auto& item : read(package))
      contents[item["name"]] = unhex(item["data"]);
    return contents;
  }
  // Name, data (hexadecimal), method, flags, date, attributes, comment of each entry, in order.
  nlohmann::json read(const std::string& package) const {
    static const char* const kScript = R"(
import json, sys, zipfile
with zipfile.ZipFile(sys.argv[1]) as z:
    print(json.dumps([{'name': i.filename, 'data': z.read(i).hex(), 'method': i.compress_type,
        'flags': i.flag_bits, 'date': list(i.date_time), 'system': i.create_system,
        'attributes': i.external_attr, 'comment': i.comment.decode('latin-1'),
        'extra': i.extra.hex()} for i in z.infolist()]))
)";
    return nlohmann::json::parse(support::python(kScript, {package}, folder.path()));
  }
  // Other programs take it without a word of complaint.
  void expectSound(const std::string& package) const {
    const auto unzip = support::run({{"unzip", "-tq", package}, {}, folder.path(), {}});
    EXPECT_EQ(unzip.status, 0) << unzip.out << unzip.err;
    EXPECT_EQ(unzip.err, "");
    const std::string bad =
        support::python("import sys, zipfile; print(zipfile.ZipFile(sys.argv[1]).testzip())",
                        {package}, folder.path());
    EXPECT_EQ(bad, "None\n");
  }
  void expectNoFinding(const std::string& package) const {
    const auto finished = run({"check", "--strict", package});
    EXPECT_EQ(finished.status, 0) << finished.out;
    EXPECT_EQ(finished.out + finished.err, "");
  }

  // Runs a python3 script in the folder.
  void python(const std::string& script) const { support::python(script, {}, folder.path()); }

  // A package of three entries; what is in it.
  Contents makePackage(const std::string& name) const {
    folder.write("one.txt", "one");
    folder.write("two.txt", std::string(5000, '2'));
    must({"create", "--type", "application/x-test", name, "one.txt", "sub/two.txt=two.txt"});
    std::filesystem::remove(folder / "one.txt");
    std::filesystem::remove(folder / "two.txt");
    return {{"mimetype", "application/x-test"},
            {"one.txt", "one"},
            {"sub/two.txt", std::string(5000, '2')}};
  }
  // Every file and folder below the folder, with what is in the files.
  Contents everything() const {
    Contents all;
    for (const auto& item : std::filesystem::recursive_directory_iterator(folder.path())) {
      const bool isFile = item.is_regular_file() && !item.is_symlink();
      all[item.path().lexically_relative(folder.path()).string()] =
          isFile ? support::readFile(item.path()) : "";
    }
    return all;
  }
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& item : std::filesystem::directory_iterator(folder.path())) {
      names.push_back(item.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  static std::string unhex(const std::string& text) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
      bytes.push_back(static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
  }

  support::TempDir folder;
  std::vector<std::pair<std::string, std::string>> environment;
};
