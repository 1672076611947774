#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "AlertRecorder.h"
#include "Documents.h"
#include "Plugin.h"
#include "QFL/Module.h"
#include "QFL/Strings.h"
#include "qvacore/Localizer.h"
#include "support/Allocations.h"
#include "support/Run.h"
#include "support/TempDir.h"

namespace {

using ModulePtr = QFL::ObjectPtr<QFL::Module, QFL::AtomicValue>;
namespace fs = std::filesystem;

// A copy of the built bundle, at a path of its own.
std::string copyOfBundle(const support::TempDir& scratch, const std::string& name) {
  const fs::path bundle = scratch / name;
  fs::copy(QSND_BUNDLE, bundle, fs::copy_options::recursive);
  return (bundle / "Contents/Linux/ImporterQSND.so").string();
}

void replaceIdentifier(const std::string& module) {
  const fs::path plist = fs::path(module).parent_path().parent_path() / "Info.plist";
  std::string text = support::readFile(plist);
  const std::string own = "com.mediakiln.importers.ImporterQSND";
  text.replace(text.find(own), own.size(), "com.mediakiln.importers.Other");
  support::writeFile(plist, text);
}

// Watches the modules that a plug-in makes.
struct ModuleWatch {
  struct Watched : QFL::Module {
    Watched(__CFBundle* bundle, int& count) : Module(bundle), alive(count) { ++alive; }
    ~Watched() override { --alive; }
    int& alive;
  };

  ModuleWatch() {
    QFL::SetModuleMaker([this](__CFBundle* bundle, ModulePtr& module) {
      ++made;
      module = ModulePtr(new Watched(bundle, alive));
      if (keepsReference) kept = module;
    });
  }
  ~ModuleWatch() { QFL::SetModuleMaker({}); }

  int made = 0;
  int alive = 0;
  bool keepsReference = false;
  ModulePtr kept;
};

// A quiet host around a test: what it replaced is put back.
class PluginEntry : public testing::Test {
protected:
  ~PluginEntry() override {
    qvacore::config::Localizer::Get().SetLookup({});
    QFL::SetStdStringMaker({});
    allocations::fail(0);
  }
  Plugin plugin;
};

TEST_F(PluginEntry, Selector0FillsTheRecordAndGives400) {
  std::vector<unsigned char> bytes(sizeof(imImportInfoRec), 0xAA);
  EXPECT_EQ(plugin(0, bytes.data()), 400);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const bool written = (i >= 48 && i < 56) || i >= 72;
    const int expected = !written ? 0xAA : i == 52 || i == 72 ? 1 : 0;
    EXPECT_EQ(bytes[i], expected) << "byte " << i;
  }
  EXPECT_EQ(plugin(1), 0);
}

TEST_F(PluginEntry, EverySelectorFromMinus1To60GivesItsNumber) {
  ModuleWatch watch;
  std::uint64_t zero[32] = {};
  for (int selector = -1; selector <= 60; ++selector) {
    imFileOpenRec8 open{};
    open.path = u"/no/such/document.qsnd";
    imIndFormatRec format{};
    void *param1 = zero, *param2 = zero;
    std::int32_t expected = 3;
    switch (selector) {
      case 0:
        expected = 400;
        break;
      case 1:
      case 14:
        expected = 0;
        param1 = nullptr;
        param2 = &format;
        break;
      case 8:
      case 25:
      case 37:
        continue;  // need an open document
      case 9:
        param2 = nullptr;
        break;
      case 27:
      case 46:
      case 47:
      case 56:
        expected = 5;
        break;
      case 28:
        expected = 100;
        break;
      case 36:
        expected = 101;
        break;
      case 39:
        expected = 31;
        param2 = &open;
        break;
      default:
        break;
    }
    EXPECT_EQ(plugin(selector, param1, param2), expected) << "selector " << selector;
    EXPECT_TRUE(open.privateData == nullptr) << "the instance of a failed open goes at once";
    if (selector == 39) {
      EXPECT_EQ(zero[0], 0u) << "the reference is left alone";
    }
  }
  EXPECT_EQ(watch.alive, 0);
}

TEST_F(PluginEntry, FormatZeroIsTheSoundDocument) {
  std::vector<unsigned char> bytes(sizeof(imIndFormatRec), 0xAA);
  ASSERT_EQ(plugin(14, nullptr, bytes.data()), 0);
  const auto text = [&](std::size_t offset) {
    return std::string(reinterpret_cast<const char*>(bytes.data()) + offset);
  };
  std::uint32_t type, flags;
  std::memcpy(&type, bytes.data(), 4);
  std::memcpy(&flags, bytes.data() + 4, 4);
  EXPECT_EQ(type, 0x51534E44u);
  EXPECT_EQ(flags, 0xE004u);
  EXPECT_EQ(text(12), "Quillon Sound Document");
  EXPECT_EQ(text(268), "QSND");
  EXPECT_EQ(std::memcmp(bytes.data() + 300, "qsnd\0\0", 6), 0);
  EXPECT_EQ(bytes[306], 0xAA);
  EXPECT_EQ(bytes[8], 0xAA);
}

TEST_F(PluginEntry, NamesOfTheFormatAreLocalised) {
  std::vector<std::string> keys;
  qvacore::config::Localizer::Get().SetLookup([&](const std::string& key) {
    keys.push_back(key);
    return keys.size() == 1 ? u"Tondokument \u00E4" : u"TON";
  });
  imIndFormatRec format{};
  ASSERT_EQ(plugin(14, nullptr, &format), 0);
  EXPECT_STREQ(format.name, "Tondokument \xC3\xA4");
  EXPECT_STREQ(format.shortName, "TON");
  EXPECT_EQ(keys, (std::vector<std::string>{
                      "$$$/MediaKiln/Importers/ImporterQSND/Name=Quillon Sound Document",
                      "$$$/MediaKiln/Importers/ImporterQSND/ShortName=QSND"}));
}

TEST_F(PluginEntry, OtherFormatsGive301AndLeaveTheRecordUnchanged) {
  const std::vector<unsigned char> untouched(sizeof(imIndFormatRec), 0xAA);
  for (const std::intptr_t index : {1, 2, 1000, -1}) {
    auto bytes = untouched;
    EXPECT_EQ(plugin(14, reinterpret_cast<void*>(index), bytes.data()), 301);
    EXPECT_EQ(bytes, untouched);
  }
}

TEST_F(PluginEntry, TheModuleLivesFromSelector0ToSelector1) {
  ModuleWatch watch;
  imImportInfoRec info{};
  EXPECT_EQ(plugin(0, &info), 400);
  EXPECT_EQ(watch.alive, 1);
  EXPECT_EQ(plugin(28), 100);
  EXPECT_EQ(watch.alive, 1);
  EXPECT_EQ(plugin(1), 0);
  EXPECT_EQ(watch.alive, 0);
}

TEST_F(PluginEntry, AModuleThatTheHostCannotMakeIsDoneWithout) {
  QFL::SetModuleMaker([](__CFBundle*, ModulePtr&) { throw 17; });
  imImportInfoRec info{};
  EXPECT_EQ(plugin(0, &info), 400);
  QFL::SetModuleMaker({});
  EXPECT_EQ(+info.word52, 1);
  EXPECT_EQ(plugin(28), 100);
  EXPECT_EQ(plugin(1), 0);
}

TEST_F(PluginEntry, EachSelector0MakesTheModuleAgain) {
  ModuleWatch watch;
  imImportInfoRec info{};
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(plugin(0, &info), 400);
  EXPECT_EQ(watch.made, 3);
  EXPECT_EQ(watch.alive, 1);
  EXPECT_EQ(plugin(1), 0);
  EXPECT_EQ(watch.alive, 0);
}

TEST_F(PluginEntry, Selector1WithoutAModuleReleasesNothing) {
  EXPECT_EQ(plugin(1), 0);
  EXPECT_EQ(plugin(1), 0);
}

TEST_F(PluginEntry, Selector1LeavesAModuleThatOthersUse) {
  ModuleWatch watch;
  watch.keepsReference = true;
  imImportInfoRec info{};
  plugin(0, &info);
  EXPECT_EQ(plugin(1), 0);
  EXPECT_EQ(watch.alive, 1);
  // The plug-in holds nothing any more: its next selector 1 does not touch the count.
  EXPECT_EQ(plugin(1), 0);
  EXPECT_EQ(watch.alive, 1);
  watch.kept = ModulePtr();
  EXPECT_EQ(watch.alive, 0);
}

TEST_F(PluginEntry, AModuleThatCallsBackFromItsEndFindsThePluginWithoutOne) {
  struct Reentrant : QFL::Module {
    Reentrant(__CFBundle* bundle, const Plugin& entry, int& count)
        : Module(bundle), plugin(entry), ends(count) {}
    ~Reentrant() override {
      ++ends;
      EXPECT_EQ(plugin(1), 0);
    }
    const Plugin& plugin;
    int& ends;
  };
  int ends = 0;
  QFL::SetModuleMaker([&](__CFBundle* bundle, ModulePtr& module) {
    module = ModulePtr(new Reentrant(bundle, plugin, ends));
  });
  imImportInfoRec info{};
  EXPECT_EQ(plugin(0, &info), 400);
  QFL::SetModuleMaker({});
  EXPECT_EQ(plugin(1), 0);
  EXPECT_EQ(ends, 1);
}

TEST_F(PluginEntry, UnloadingReleasesAModuleThatWasNotShutDown) {
  ModuleWatch watch;
  const support::TempDir scratch;
  {
    const Plugin other(copyOfBundle(scratch, "Other.bundle"));
    imImportInfoRec info{};
    other(0, &info);
    EXPECT_EQ(watch.alive, 1);
  }
  EXPECT_EQ(watch.alive, 0);
}

TEST(PluginLoading, WithoutItsBundleSelector0StillGives400) {
  ModuleWatch watch;
  const support::TempDir scratch;
  const std::string module = copyOfBundle(scratch, "Renamed.bundle");
  replaceIdentifier(module);
  const Plugin plugin(module);
  imImportInfoRec info{};
  EXPECT_EQ(plugin(0, &info), 400);
  EXPECT_EQ(+info.word52, 1);
  EXPECT_EQ(watch.made, 0);
  imIndFormatRec format{};
  EXPECT_EQ(plugin(14, nullptr, &format), 0);
  EXPECT_EQ(plugin(1), 0);
}

TEST(PluginLoading, LoadsFromAnyFolderByAnyPath) {
  const auto before = fs::current_path();
  for (const std::string& folder : {std::string("/"), std::string(QSND_BUNDLE "/Contents")}) {
    fs::current_path(folder);
    const auto relative = fs::relative(Plugin::builtModule()).string();
    const Plugin plugin("./" + relative);
    EXPECT_EQ(plugin(28), 100);
    const Plugin again(Plugin::builtModule());
    EXPECT_EQ(again(28), 100);
  }
  fs::current_path(before);
}

TEST(PluginLoading, TwoCopiesLiveIndependently) {
  ModuleWatch watch;
  const support::TempDir scratch;
  const Plugin first(copyOfBundle(scratch, "First.bundle"));
  const Plugin second(copyOfBundle(scratch, "Second.bundle"));
  ASSERT_NE(first.entry(), second.entry());
  imImportInfoRec info{};
  first(0, &info);
  second(0, &info);
  EXPECT_EQ(watch.alive, 2);
  first(1);
  EXPECT_EQ(watch.alive, 1);
  second(1);
  EXPECT_EQ(watch.alive, 0);

  // What silences an alert in one does not silence it in the other.
  AlertRecorder alert;
  alert.disables = true;
  qvacore::config::Localizer::Get().SetLookup(
      [](const std::string&) -> std::u16string { throw std::runtime_error("no texts"); });
  imIndFormatRec format{};
  EXPECT_EQ(first(14, nullptr, &format), 3);
  EXPECT_EQ(first(14, nullptr, &format), 3);
  EXPECT_EQ(alert.messages.size(), 1u);
  EXPECT_EQ(second(14, nullptr, &format), 3);
  EXPECT_EQ(alert.messages.size(), 2u);
  qvacore::config::Localizer::Get().SetLookup({});
}

TEST(PluginLoading, TheEntryIsTheOnlySymbol) {
  const std::string symbols =
      support::mustRun({{"nm", "-D", "--defined-only", Plugin::builtModule()}});
  const auto space = symbols.find(' ');
  ASSERT_NE(space, std::string::npos);
  EXPECT_EQ(symbols.substr(space), " T xImportEntry\n");
}

// Alerts through the whole plug-in; each test has a copy of it, since a silenced clause stays
// silent.
class PluginAlerts : public testing::Test {
protected:
  PluginAlerts() : plugin(copyOfBundle(scratch, "Alerts.bundle")) {}
  ~PluginAlerts() override {
    qvacore::config::Localizer::Get().SetLookup({});
    allocations::fail(0);
  }

  template <class Exception>
  void makeLookupsThrow(Exception exception) {
    qvacore::config::Localizer::Get().SetLookup(
        [exception](const std::string&) -> std::u16string { throw exception; });
  }

  // Selector 39 or 37 with the first allocation in it failing.
  std::int32_t createWithoutMemory() {
    imFileInfoRec8 info{};
    allocations::fail(1);
    const auto result = plugin(37, nullptr, &info);
    allocations::fail(0);
    EXPECT_TRUE(info.privateData == nullptr);
    return result;
  }

  support::TempDir scratch;
  Plugin plugin;
  AlertRecorder alert;
  imIndFormatRec format{};
};

TEST_F(PluginAlerts, AStandardExceptionIsToldAndSilencedOnDemand) {
  makeLookupsThrow(std::runtime_error("no texts"));
  EXPECT_EQ(plugin(14, nullptr, &format), 3);
  EXPECT_EQ(alert.messages, (std::vector<std::string>{
                                "plugin.HxImportModule  importmod:0x0 Threw an EXCEPTION during  "
                                "selector:14. what() returned no texts\n"}));
  alert.disables = true;
  EXPECT_EQ(plugin(14, nullptr, &format), 3);
  EXPECT_EQ(plugin(14, nullptr, &format), 3);
  EXPECT_EQ(alert.messages.size(), 2u);
}

TEST_F(PluginAlerts, AnUnknownExceptionIsToldAndSilencedOnDemand) {
  makeLookupsThrow(17);
  EXPECT_EQ(plugin(14, nullptr, &format), 3);
  EXPECT_EQ(alert.messages, (std::vector<std::string>{
                                "plugin.HxImportModule  importmod:0x0 Threw an unknown EXCEPTION "
                                "during  selector:14\n"}));
  alert.disables = true;
  EXPECT_EQ(plugin(14, nullptr, &format), 3);
  EXPECT_EQ(plugin(14, nullptr, &format), 3);
  EXPECT_EQ(alert.messages.size(), 2u);
  makeLookupsThrow(std::runtime_error("the other clause"));
  EXPECT_EQ(plugin(14, nullptr, &format), 3);
  EXPECT_EQ(alert.messages.size(), 3u);
}

TEST_F(PluginAlerts, AnInstanceWithoutMemoryIsToldAndGives99) {
  EXPECT_EQ(createWithoutMemory(), 99);
  EXPECT_EQ(alert.messages,
            (std::vector<std::string>{"<plugin.HxImportModule> An exception occured creating "
                                      "ImportModule N12ImporterQSND12ImporterQSNDE what() returned "
                                      "std::bad_alloc\n"}));
  alert.disables = true;
  EXPECT_EQ(createWithoutMemory(), 99);
  EXPECT_EQ(createWithoutMemory(), 99);
  EXPECT_EQ(alert.messages.size(), 2u);
}

using PluginAlertsDeathTest = PluginAlerts;

TEST_F(PluginAlertsDeathTest, AnExceptionThatIsThrownOnEndsTheProcess) {
  alert.rethrows = true;
  makeLookupsThrow(std::runtime_error("thrown on"));
  EXPECT_DEATH(plugin(14, nullptr, &format), "terminate");
  makeLookupsThrow(17);
  EXPECT_DEATH(plugin(14, nullptr, &format), "terminate");
  EXPECT_DEATH(createWithoutMemory(), "terminate");
}

}  // namespace
