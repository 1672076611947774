#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

#include <gtest/gtest.h>

#include "support/Run.h"
#include "support/TempDir.h"
#include "support/ZipBytes.h"

// The program in a folder of its own, and independent readers of what it makes.
class Qcfpkg : public testing::Test {
protected:
  using Contents = std::map<std::string, std::string>;
  using Fields = std::map<std::string, std::string>;

  support::Finished run(std::vector<std::string> arguments, const std::string& input = {}) const;
  // Runs what has to go well and say nothing on standard error.
  std::string must(const std::vector<std::string>& arguments, const std::string& input = {}) const;
  // Starts the program, quiet, and returns its process. It may be killed: the counters of a build
  // that counts what is reached (QCF_COVERAGE) stay out of reach, or they would be left in pieces.
  pid_t start(std::vector<std::string> arguments) const;
  // Runs a shell command in which $0 is the program.
  support::Finished shell(const std::string& command) const;
  // Runs a python3 script in the folder.
  void python(const std::string& script) const { support::python(script, {}, folder.path()); }

  // A failure: this status, nothing on standard output, one line that holds `words`.
  void expectFailure(const std::vector<std::string>& arguments, int status,
                     const std::string& words) const;
  // Other programs take it without a word of complaint.
  void expectSound(const std::string& package) const;
  void expectNoFinding(const std::string& package) const;

  // What python3 finds in a package: each entry's name, data, method, flags, date, system,
  // attributes, comment and extra (hexadecimal), in order.
  std::vector<Fields> read(const std::string& package) const;
  // The data by the names.
  Contents contents(const std::string& package) const;

  // What a script printed: a line for each entry, in it the name of each field and its value, in
  // hexadecimal and with a full stop.
  static std::vector<Fields> entriesOf(const std::string& text);

  // A package of three entries; what is in it.
  Contents makePackage(const std::string& name) const;
  // Every file and folder below the folder, with what is in the files.
  Contents everything() const;
  std::vector<std::string> files() const;

  support::TempDir folder;
  std::vector<std::pair<std::string, std::string>> environment;
};
