#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "unit/writing/Writing.h"

// Every operation of a transaction in every state of a package: the number that it raises, or the
// state that it leads to.

namespace {

using namespace writing;

constexpr auto kSaveMode = kIn | kOut | kTrunc;

// A package with one entry, and the file system that it is in. Its first flush fails where asked.
class Machine {
public:
  explicit Machine(bool failsToFlush) {
    zipbytes::File old;
    old.add(storedEntry("a.txt", "alpha"), "alpha");
    fMemory.put("old", old.bytes());
    if (failsToFlush) fFailing.emplace(fMemory, 1, support::Failures{support::Failure::Flush});
    fFiles = failsToFlush ? static_cast<pkg::IPkgFileSystem<>*>(&*fFailing) : &fMemory;
    package = pkg::QCFPackageFactory().openPackage("old", kIn | kOut, fFiles, nullptr, nullptr);
  }

  boost::shared_ptr<pkg::IPkgFSFileName<>> name(const std::string& text) const {
    return fFiles->getFSFileName(text);
  }

  // "closed", or whether an update runs, and into which file, and where the package lives.
  std::string state() const {
    try {
      package->isModified();
    } catch (pkg::PackageException<>&) {
      return "closed";
    }
    // A mode without `out` is refused after everything else has been looked at.
    const bool inUpdate = raised([&] { package->beginUpdate("x", kIn); }) == "35";
    const bool saving = inUpdate && package->getOpenMode(false) == kSaveMode;
    const std::string file = package->getFSFile()->getName()->getName();
    return (saving ? "saving" : (inUpdate ? "updating" : "idle")) + (" " + file);
  }

private:
  support::MemoryFileSystem fMemory;
  std::optional<support::FailingFileSystem> fFailing;
  pkg::IPkgFileSystem<>* fFiles;

public:
  Package package;  // goes before the file systems
};

using Step = std::function<void(Machine&)>;

const std::map<std::string, Step>& operations() {
  static const std::map<std::string, Step> all = {
      {"beginUpdate()", [](Machine& m) { m.package->beginUpdate(); }},
      {"beginUpdate(string)", [](Machine& m) { m.package->beginUpdate("new", kSaveMode); }},
      {"beginUpdate(name)", [](Machine& m) { m.package->beginUpdate(m.name("new"), kSaveMode); }},
      {"beginUpdate(string, in)", [](Machine& m) { m.package->beginUpdate("new", kIn); }},
      {"beginUpdate(name, in)", [](Machine& m) { m.package->beginUpdate(m.name("new"), kIn); }},
      {"doUNSAFEUpdateInPlace", [](Machine& m) { m.package->doUNSAFEUpdateInPlace(); }},
      {"endUpdate", [](Machine& m) { m.package->endUpdate(); }},
      {"cancelUpdate", [](Machine& m) { m.package->cancelUpdate(); }},
      {"saveAs(string)", [](Machine& m) { m.package->saveAs("new", kSaveMode); }},
      {"saveAs(name)", [](Machine& m) { m.package->saveAs(m.name("new"), kSaveMode); }},
      {"saveAs(string, in)", [](Machine& m) { m.package->saveAs("new", kIn); }},
      {"saveAs(name, in)", [](Machine& m) { m.package->saveAs(m.name("new"), kIn); }},
      {"close", [](Machine& m) { m.package->close(); }},
      {"closeWithoutSave", [](Machine& m) { m.package->closeWithoutSave(); }},
  };
  return all;
}

struct State {
  std::string name;
  bool failsToFlush;
  Step reach;
  std::string seen;                            // what state() says of it
  std::map<std::string, std::string> outcome;  // of each operation
};

// The columns of the table: what differs from state to state.
std::map<std::string, std::string> closedOutcomes() {
  std::map<std::string, std::string> all;
  for (const auto& [operation, step] : operations())
    all[operation] = "24";
  return all;
}

std::map<std::string, std::string> updatingOutcomes(const std::string& endsIn) {
  std::map<std::string, std::string> all;
  for (const auto& [operation, step] : operations())
    all[operation] = "35";
  all["doUNSAFEUpdateInPlace"] = "idle old";  // checks nothing, and overruns the update
  all["endUpdate"] = endsIn;
  all["cancelUpdate"] = "idle old";
  all["close"] = all["closeWithoutSave"] = "closed";
  return all;
}

std::map<std::string, std::string> idleOutcomes(const std::string& beginLeadsTo) {
  return {
      {"beginUpdate()", beginLeadsTo},
      {"beginUpdate(string)", "saving old"},
      {"beginUpdate(name)", "saving old"},
      {"beginUpdate(string, in)", "36"},
      {"beginUpdate(name, in)", "36"},
      {"doUNSAFEUpdateInPlace", "idle old"},
      {"endUpdate", "37"},
      {"cancelUpdate", "37"},
      {"saveAs(string)", "idle new"},
      {"saveAs(name)", "idle new"},
      {"saveAs(string, in)", "36"},
      {"saveAs(name, in)", "36"},
      {"close", "closed"},
      {"closeWithoutSave", "closed"},
  };
}

void strand(Machine& m) {
  try {
    m.package->saveAs("new", kSaveMode);
    ADD_FAILURE() << "the save did not fail";
  } catch (pkg::PackageIOException<>&) {
  }
}

std::vector<State> states() {
  return {
      {"Idle", false, [](Machine&) {}, "idle old", idleOutcomes("updating old")},
      {"Updating", false, [](Machine& m) { m.package->beginUpdate(); }, "updating old",
       updatingOutcomes("idle old")},
      {"Saving", false, [](Machine& m) { m.package->beginUpdate("new", kSaveMode); }, "saving old",
       updatingOutcomes("idle new")},
      {"Stranded", true, strand, "idle old", idleOutcomes("saving old")},
      {"Closed", false, [](Machine& m) { m.package->close(); }, "closed", closedOutcomes()},
      {"ClosedInAnUpdate", false,
       [](Machine& m) {
         m.package->beginUpdate();
         m.package->close();
       },
       "closed", closedOutcomes()},
  };
}

class StateMachine : public testing::TestWithParam<State> {};

TEST_P(StateMachine, EachOperationLeadsWhereTheTableSays) {
  const State& state = GetParam();
  for (const auto& entry : operations()) {
    const std::string& operation = entry.first;
    const Step& step = entry.second;
    SCOPED_TRACE(operation);
    Machine machine(state.failsToFlush);
    state.reach(machine);
    ASSERT_EQ(machine.state(), state.seen);
    const std::string code = raised([&] { step(machine); });
    EXPECT_EQ(code.empty() ? machine.state() : code, state.outcome.at(operation));
    // Refused operations change nothing; only the unsafe one may have begun.
    if (!code.empty()) {
      EXPECT_EQ(machine.state(), state.seen);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(States, StateMachine, testing::ValuesIn(states()),
                         [](const auto& suite) { return suite.param.name; });

// The way out of the stranded state: start over on the same output.
TEST(StateMachine, AStrandedPackageStartsOverOnTheSameOutputWithBeginUpdate) {
  Machine machine(true);
  strand(machine);
  machine.package->beginUpdate();
  machine.package->endUpdate();
  EXPECT_EQ(machine.state(), "idle new");
  EXPECT_EQ(contents(machine.package, "a.txt"), "alpha");
}

TEST(StateMachine, EveryOtherOperationOfAClosedPackageRaises24) {
  Machine machine(false);
  const Package package = machine.package;
  const auto root = package->getRootDirectory();
  package->close();
  boost::shared_ptr<pkg::IPkgEntryIteratorImpl<>> iterator;
  EXPECT_RAISED("24", package->getOpenMode(true));
  EXPECT_RAISED("24", package->setDefaultCompressionMethod(CompressionStored));
  EXPECT_RAISED("24", package->getDefaultCompressionMethod());
  EXPECT_RAISED("24", package->isModified());
  EXPECT_RAISED("24", package->entryExists("a.txt"));
  EXPECT_RAISED("24", package->entryExists("a.txt", root));
  EXPECT_RAISED("24", package->getFile("a.txt", true));
  EXPECT_RAISED("24", package->getFile("a.txt", root, true));
  EXPECT_RAISED("24", package->getDirectory("d", false));
  EXPECT_RAISED("24", package->getDirectory("d", root, false));
  EXPECT_RAISED("24", package->getRootDirectory());
  EXPECT_RAISED("24", package->getName());
  EXPECT_RAISED("24", package->getFSFile());
  EXPECT_RAISED("24", package->setMIMEType("x"));
  EXPECT_RAISED("24", package->getMIMEType());
  EXPECT_RAISED("24", package->getProperty(pkg::QCFPropertyPackageComment));
  EXPECT_RAISED("24", package->setProperty(pkg::QCFPropertyPackageComment, "x"));
  EXPECT_RAISED("24", package->initIterator(iterator, root, ""));
  EXPECT_EQ(package->getPolicies(), nullptr);
  EXPECT_EQ(package->getPolicy(pkg::IPkgPolicies::PolicyCRC), 0);
}

}  // namespace
