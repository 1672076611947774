#pragma once

#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "crash/Pictures.h"
#include "crash/ProgramTrial.h"
#include "failures/Listing.h"

// The changes that the programs make to files, and what is there afterwards.
namespace crash {

// Where a change is written.
enum class Place { Beside, InTheFile };

struct Change {
  const char* name;
  const char* program;
  std::vector<std::string> arguments;
  std::vector<std::string> outputs;
  std::vector<std::string> next;  // a later run that writes the same files
  bool usesZlib;
  Place place = Place::Beside;
  std::string input = {};
  bool isVariant = false;  // of another: in the short form, less of it is tried
};

inline void PrintTo(const Change& change, std::ostream* out) {
  *out << change.name;
}

// A time, and the four bytes that stand for it in a record.
constexpr const char* kModified = "2001-02-03 04:05:06";
constexpr const char* kModifiedBytes = "\xA3\x20\x43\x2A";

// What there is to tell one package, or another file, from the next. Of times, whether the above is
// among them.
struct State {
  failures::Listing listing;
  std::string rest;  // all of what is no package, the size of what is, and whether it has the time
  bool isPackage = false;

  friend bool operator==(const State& a, const State& b) {
    return a.listing == b.listing && a.rest == b.rest && a.isPackage == b.isPackage;
  }
};

inline State stateOf(const std::string& bytes) {
  if (const auto picture = waveIn(bytes)) return {{}, *picture};
  try {
    const bool hasTime = bytes.find(kModifiedBytes) != std::string::npos;
    return {failures::listed(bytes), std::to_string(bytes.size()) + (hasTime ? " then" : ""), true};
  } catch (const std::exception&) {
    return {{}, bytes};
  }
}

using Bytes = std::optional<std::string>;  // of a file, where there is one
using Files = std::map<std::string, std::string>;

// A change, and what its outputs may be.
class ChangeTrial : public ProgramTrial, public testing::WithParamInterface<Change> {
protected:
  void SetUp() override {
    ProgramTrial::SetUp();
    fOld = states();
  }
  // Once the change has been made.
  void adoptNew() {
    fNew = states();
    ASSERT_FALSE(fNew == fOld);
    for (const std::string& name : GetParam().outputs)
      fNewRights[name] = rightsTo(name);
  }

  support::Command change(Environment more = {}) const {
    support::Command change = command(GetParam().program, GetParam().arguments, std::move(more));
    change.input = GetParam().input;
    return change;
  }
  bool isInPlace() const { return GetParam().place == Place::InTheFile; }
  bool isOutput(const std::string& name) const {
    const auto& outputs = GetParam().outputs;
    return std::find(outputs.begin(), outputs.end(), name) != outputs.end();
  }
  Bytes bytesOf(const std::string& name) const {
    if (!std::filesystem::exists(fFolder / name)) return {};
    return fFolder.read(name);
  }
  Files present() const {
    Files all;
    for (const std::string& name : files())
      all[name] = fFolder.read(name);
    return all;
  }
  // What nobody asked for.
  std::vector<std::string> leftovers() const {
    std::vector<std::string> names;
    for (const std::string& name : files()) {
      if (fInitial.count(name) == 0 && !isOutput(name)) names.push_back(name);
    }
    return names;
  }
  // Without the importer's temporary files, which stay in the user's cache when its process is
  // killed.
  std::vector<std::string> leftoversOfTheKilled() const { return withoutTemporary(leftovers()); }
  static std::vector<std::string> withoutTemporary(std::vector<std::string> names) {
    names.erase(std::remove_if(names.begin(), names.end(),
                               [](const std::string& name) {
                                 return name.rfind("cache/TemporaryItems/", 0) == 0;
                               }),
                names.end());
    return names;
  }

  // Each output is the old file or the new one, and no other file has changed. Returns whether all
  // are new.
  bool expectOldOrNew(const Files& left) const {
    bool allNew = true;
    for (const std::string& output : GetParam().outputs) {
      const auto found = left.find(output);
      const auto old = fInitial.find(output);
      const bool isOld = found == left.end()
                             ? old == fInitial.end()
                             : old != fInitial.end() && found->second == old->second;
      const bool isNew = stateIn(left, output) == fNew.at(output);
      EXPECT_TRUE(isOld || isNew) << output << " is neither the old file nor the new";
      allNew = allNew && isNew;
    }
    for (const auto& [name, bytes] : fInitial) {
      if (isOutput(name)) continue;
      const auto found = left.find(name);
      EXPECT_TRUE(found != left.end() && found->second == bytes) << name << " has changed";
    }
    return allNew;
  }
  // And nobody has rights to them that are neither the old nor the new file's.
  bool expectOldOrNew() const {
    for (const std::string& name : files()) {
      const auto asNew = fNewRights.find(name);
      const bool isAsOld = fInitial.count(name) != 0 && rightsTo(name) == kOwners;
      const bool isAsNew = asNew != fNewRights.end() && rightsTo(name) == asNew->second;
      EXPECT_TRUE(isAsOld || isAsNew || !isOutput(name)) << name << " has other rights";
    }
    return expectOldOrNew(present());
  }

  // The next run takes away what is left, and says so.
  void expectNextRunClears(const std::vector<std::string>& left) const {
    const auto next = support::run(command(GetParam().program, GetParam().next));
    EXPECT_EQ(next.status, 0) << next.err;
    EXPECT_EQ(leftoversOfTheKilled(), std::vector<std::string>());
    for (const std::string& name : left)
      EXPECT_NE(next.err.find(name + ", which an interrupted run had left"), std::string::npos)
          << next.err;
  }

  static std::optional<State> stateIn(const Files& files, const std::string& name) {
    const auto found = files.find(name);
    if (found == files.end()) return {};
    return stateOf(found->second);
  }

  using States = std::map<std::string, std::optional<State>>;
  States fOld, fNew;
  std::map<std::string, std::filesystem::perms> fNewRights;

private:
  States states() const {
    States all;
    for (const std::string& name : GetParam().outputs) {
      const Bytes bytes = bytesOf(name);
      all[name] = bytes ? std::optional<State>(stateOf(*bytes)) : std::nullopt;
    }
    return all;
  }
};

const std::vector<Change>& changes();

// The changes that are written beside their file, or those in it.
std::vector<Change> changesWritten(Place place);

}  // namespace crash
