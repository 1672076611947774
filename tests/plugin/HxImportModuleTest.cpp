#include <cstdint>
#include <functional>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "AlertRecorder.h"
#include "HxImportModule.h"

namespace {

// An importer that writes down its calls and answers or throws as it is told. The flags that
// silence the alerts are one set for each importer class, so tests that set them take a class of
// their own.
template <int Tag>
class FakeImporter : public HxImportModule<FakeImporter<Tag>> {
public:
  struct Script {
    std::vector<std::string> calls;
    std::function<void()> constructing, acting;
    std::int32_t result = 0;
    const void* lastThis = nullptr;
    const imStdParms* stdParms = nullptr;
    int index = 0;
    int alive = 0;
  };
  static Script& script() {
    static Script sScript;
    return sScript;
  }

  FakeImporter() {
    if (script().constructing) script().constructing();
    ++script().alive;
  }
  ~FakeImporter() override {
    --script().alive;
    script().calls.push_back("destroy");
  }
  void SetStdParms(const imStdParms* stdParms) override {
    script().calls.push_back("SetStdParms");
    script().stdParms = stdParms;
  }

  static std::int32_t Init(imImportInfoRec*) { return act("Init", nullptr); }
  static std::int32_t ShutDown() { return act("ShutDown", nullptr); }
  static std::int32_t GetIndFormat(const QFL::ResourceCollection&, imStdParms*, int index,
                                   imIndFormatRec*) {
    script().index = index;
    return act("GetIndFormat", nullptr);
  }
  std::int32_t OnOpenFile8(void**, imFileOpenRec8*) { return act("OnOpenFile8", this); }
  std::int32_t OnGetInfo8(imFileAccessRec8*, imFileInfoRec8*) { return act("OnGetInfo8", this); }
  std::int32_t OnImportAudio7(void*, imImportAudioRec7*) { return act("OnImportAudio7", this); }
  std::int32_t OnQuietFile(void**) { return act("OnQuietFile", this); }
  std::int32_t OnCloseFile(void**) { return act("OnCloseFile", this); }

private:
  static std::int32_t act(const char* name, const void* self) {
    script().calls.push_back(name);
    script().lastThis = self;
    if (script().acting) script().acting();
    return script().result;
  }
};

template <int Tag>
struct Driver {
  using Importer = FakeImporter<Tag>;
  typename Importer::Script& script = Importer::script();

  Driver() { script = {}; }

  std::int32_t send(int selector, void* param1 = nullptr, void* param2 = nullptr) {
    static const QFL::ResourceCollection sResources;
    return Importer::ImportEntry(sResources, selector, stdParms, param1, param2);
  }

  imStdParms* stdParms = nullptr;
};

using Calls = std::vector<std::string>;

// By value: nothing may refer to a field of a packed record.
template <class Record>
void* instanceIn(const Record& record) {
  return record.privateData;
}

// The text that tells of a failure during a selector.
std::string failureText(const char* what, const void* instance, int selector,
                        const char* reason = nullptr) {
  const auto low = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(instance));
  return fmt::format("plugin.HxImportModule  importmod:0x{:x} Threw an {} during  selector:{}{}\n",
                     low, what, selector,
                     reason ? fmt::format(". what() returned {}", reason) : std::string());
}

TEST(HxImportModule, SelectorsWithoutAMeaningGive3AndTouchNothing) {
  Driver<0> driver;
  std::vector<int> selectors = {
      57, 58, 60, 100, -1, -2, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()};
  for (const auto& [first, last] : std::vector<std::pair<int, int>>{
           {2, 7}, {10, 13}, {15, 24}, {26, 26}, {29, 35}, {38, 38}, {40, 45}, {48, 55}}) {
    for (int selector = first; selector <= last; ++selector)
      selectors.push_back(selector);
  }
  std::uint64_t word1 = 1, word2 = 2;
  for (const int selector : selectors) {
    EXPECT_EQ(driver.send(selector, &word1, &word2), 3) << selector;
    EXPECT_EQ(driver.send(selector, nullptr, nullptr), 3) << selector;
  }
  EXPECT_TRUE(driver.script.calls.empty());
  EXPECT_EQ(word1, 1u);
  EXPECT_EQ(word2, 2u);
}

TEST(HxImportModule, FixedAnswersDependOnTheFirstWordAtMost) {
  Driver<0> driver;
  std::uint64_t zero = 0, one = 1, high = std::uint64_t{1} << 63;
  EXPECT_EQ(driver.send(27, nullptr, &zero), 5);
  EXPECT_EQ(driver.send(27, nullptr, &one), 99);
  EXPECT_EQ(driver.send(27, nullptr, &high), 99);
  EXPECT_EQ(driver.send(28), 100);
  EXPECT_EQ(driver.send(36), 101);
  for (const int selector : {46, 56}) {
    EXPECT_EQ(driver.send(selector, &zero, &one), 5);
    EXPECT_EQ(driver.send(selector, &one, &zero), 3);
    EXPECT_EQ(driver.send(selector, &high, &zero), 3);
  }
  EXPECT_EQ(driver.send(47, &one, &zero), 5);
  EXPECT_EQ(driver.send(47, &zero, &one), 3);
  EXPECT_EQ(driver.send(47, &zero, &high), 3);
  EXPECT_TRUE(driver.script.calls.empty());
}

TEST(HxImportModule, StaticOperationsGiveTheirResult) {
  Driver<0> driver;
  driver.script.result = 400;
  EXPECT_EQ(driver.send(0), 400);
  driver.script.result = 12;
  EXPECT_EQ(driver.send(1), 12);
  driver.script.result = 301;
  EXPECT_EQ(driver.send(14, reinterpret_cast<void*>(std::intptr_t{-5})), 301);
  EXPECT_EQ(driver.script.index, -5);
  EXPECT_EQ(driver.script.calls, (Calls{"Init", "ShutDown", "GetIndFormat"}));
}

TEST(HxImportModule, QuietAndImportAudioFindTheirInstance) {
  Driver<0> driver;
  Driver<0>::Importer instance;
  driver.script.result = 38;
  EXPECT_EQ(driver.send(8, nullptr, &instance), 38);
  EXPECT_EQ(driver.script.lastThis, &instance);
  driver.script.lastThis = nullptr;
  imImportAudioRec7 audio{};
  audio.privateData = &instance;
  EXPECT_EQ(driver.send(25, nullptr, &audio), 38);
  EXPECT_EQ(driver.script.lastThis, &instance);
  EXPECT_EQ(driver.script.calls, (Calls{"OnQuietFile", "OnImportAudio7"}));
}

TEST(HxImportModule, ClosingDestroysTheInstanceAfterwards) {
  Driver<0> driver;
  auto* const instance = new Driver<0>::Importer;
  EXPECT_EQ(driver.send(9, nullptr, instance), 0);
  EXPECT_EQ(driver.script.calls, (Calls{"OnCloseFile", "destroy"}));
}

TEST(HxImportModule, ClosingNothingGives3) {
  Driver<0> driver;
  EXPECT_EQ(driver.send(9), 3);
  EXPECT_TRUE(driver.script.calls.empty());
}

TEST(HxImportModule, TheFirstInfoRequestMakesAnInstance) {
  Driver<0> driver;
  char parameters;
  driver.stdParms = reinterpret_cast<imStdParms*>(&parameters);
  imFileInfoRec8 info{};
  EXPECT_EQ(driver.send(37, nullptr, &info), 0);
  EXPECT_EQ(driver.script.calls, (Calls{"SetStdParms", "OnGetInfo8"}));
  EXPECT_EQ(driver.script.stdParms, driver.stdParms);
  void* const instance = info.privateData;
  EXPECT_EQ(driver.script.lastThis, instance);
  EXPECT_EQ(driver.send(37, nullptr, &info), 0);
  EXPECT_EQ(instanceIn(info), instance);
  EXPECT_EQ(driver.script.alive, 1);
  EXPECT_EQ(driver.send(9, nullptr, instance), 0);
}

TEST(HxImportModule, AFailedFirstInfoRequestLeavesItsInstanceWithTheHost) {
  Driver<0> driver;
  driver.script.result = 31;
  imFileInfoRec8 info{};
  EXPECT_EQ(driver.send(37, nullptr, &info), 31);
  ASSERT_NE(instanceIn(info), nullptr);
  EXPECT_EQ(driver.script.alive, 1);
  driver.send(9, nullptr, info.privateData);
}

TEST(HxImportModule, AFailedFirstOpenTakesItsInstanceBack) {
  Driver<0> driver;
  driver.script.result = 31;
  imFileOpenRec8 file{};
  EXPECT_EQ(driver.send(39, nullptr, &file), 31);
  EXPECT_EQ(instanceIn(file), nullptr);
  EXPECT_EQ(driver.script.calls, (Calls{"SetStdParms", "OnOpenFile8", "destroy"}));
}

TEST(HxImportModule, AFailedLaterOpenLeavesTheInstanceAlone) {
  Driver<0> driver;
  imFileOpenRec8 file{};
  EXPECT_EQ(driver.send(39, nullptr, &file), 0);
  void* const instance = file.privateData;
  ASSERT_NE(instance, nullptr);
  driver.script.result = 31;
  EXPECT_EQ(driver.send(39, nullptr, &file), 31);
  EXPECT_EQ(instanceIn(file), instance);
  EXPECT_EQ(driver.script.alive, 1);
  driver.send(9, nullptr, instance);
}

TEST(HxImportModule, AnInstanceThatCannotBeMadeGives99AndIsTold) {
  Driver<1> driver;
  AlertRecorder alert;
  driver.script.constructing = [] { throw std::runtime_error("no memory for it"); };
  imFileInfoRec8 info{};
  EXPECT_EQ(driver.send(37, nullptr, &info), 99);
  EXPECT_EQ(instanceIn(info), nullptr);
  imFileOpenRec8 file{};
  EXPECT_EQ(driver.send(39, nullptr, &file), 99);
  EXPECT_EQ(instanceIn(file), nullptr);
  const std::string expected =
      "<plugin.HxImportModule> An exception occured creating ImportModule "
      "N12_GLOBAL__N_112FakeImporterILi1EEE what() returned no memory for it\n";
  EXPECT_EQ(alert.messages, (Calls{expected, expected}));
}

TEST(HxImportModule, ASilencedCreationFailsWithoutAWord) {
  Driver<2> driver;
  AlertRecorder alert;
  alert.disables = true;
  driver.script.constructing = [] { throw std::runtime_error("again"); };
  imFileOpenRec8 file{};
  EXPECT_EQ(driver.send(39, nullptr, &file), 99);
  EXPECT_EQ(driver.send(39, nullptr, &file), 99);
  EXPECT_EQ(alert.messages.size(), 1u);
  // The clauses around a selector have flags of their own.
  driver.script.acting = [] { throw std::runtime_error("elsewhere"); };
  EXPECT_EQ(driver.send(0), 3);
  EXPECT_EQ(alert.messages.size(), 2u);
}

TEST(HxImportModule, ACreationThatIsThrownOnReachesTheClauseAroundTheSelector) {
  Driver<3> driver;
  std::vector<std::string> messages;
  // The first to ask is the creation; it alone throws on.
  QFL::SetUnhandledExceptionAlert([&](bool&, const std::string& message) {
    messages.push_back(message);
    return messages.size() == 1;
  });
  driver.script.constructing = [] { throw std::runtime_error("on and on"); };
  imFileOpenRec8 file{};
  EXPECT_EQ(driver.send(39, nullptr, &file), 3);
  QFL::SetUnhandledExceptionAlert({});
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[1], failureText("EXCEPTION", nullptr, 39, "on and on"));
}

TEST(HxImportModule, ACreationThatThrowsNoStandardExceptionReachesTheCatchAll) {
  Driver<4> driver;
  AlertRecorder alert;
  driver.script.constructing = [] { throw 42; };
  imFileInfoRec8 info{};
  EXPECT_EQ(driver.send(37, nullptr, &info), 3);
  EXPECT_EQ(alert.messages, (Calls{failureText("unknown EXCEPTION", nullptr, 37)}));
}

TEST(HxImportModule, AStandardExceptionIsToldLetterByLetter) {
  Driver<5> driver;
  AlertRecorder alert;
  driver.script.acting = [] { throw std::runtime_error("the reason"); };
  EXPECT_EQ(driver.send(14), 3);
  EXPECT_EQ(alert.messages,
            (Calls{"plugin.HxImportModule  importmod:0x0 Threw an EXCEPTION during  selector:14. "
                   "what() returned the reason\n"}));
}

TEST(HxImportModule, AnUnknownExceptionIsToldLetterByLetter) {
  Driver<6> driver;
  AlertRecorder alert;
  driver.script.acting = [] { throw "not a standard exception"; };
  EXPECT_EQ(driver.send(1), 3);
  EXPECT_EQ(alert.messages, (Calls{"plugin.HxImportModule  importmod:0x0 Threw an unknown "
                                   "EXCEPTION during  selector:1\n"}));
}

TEST(HxImportModule, TheInstanceIsToldForQuietCloseAndImportAudioOnly) {
  Driver<7> driver;
  AlertRecorder alert;
  auto* const instance = new Driver<7>::Importer;
  driver.script.acting = [] { throw std::runtime_error("x"); };
  imImportAudioRec7 audio{};
  audio.privateData = instance;
  imFileInfoRec8 info{};
  info.privateData = instance;
  imFileOpenRec8 file{};
  file.privateData = instance;
  EXPECT_EQ(driver.send(8, nullptr, instance), 3);
  EXPECT_EQ(driver.send(25, nullptr, &audio), 3);
  EXPECT_EQ(driver.send(9, nullptr, instance), 3);
  EXPECT_EQ(driver.send(37, nullptr, &info), 3);
  EXPECT_EQ(driver.send(39, nullptr, &file), 3);
  EXPECT_EQ(alert.messages, (Calls{failureText("EXCEPTION", instance, 8, "x"),
                                   failureText("EXCEPTION", instance, 25, "x"),
                                   failureText("EXCEPTION", instance, 9, "x"),
                                   failureText("EXCEPTION", nullptr, 37, "x"),
                                   failureText("EXCEPTION", nullptr, 39, "x")}));
  delete instance;
}

TEST(HxImportModule, ASilencedClauseComposesNothingAndTheOtherIsUnaffected) {
  Driver<8> driver;
  AlertRecorder alert;
  alert.disables = true;
  driver.script.acting = [] { throw std::runtime_error("x"); };
  EXPECT_EQ(driver.send(0), 3);
  EXPECT_EQ(driver.send(0), 3);
  EXPECT_EQ(alert.messages.size(), 1u);
  alert.disables = false;
  driver.script.acting = [] { throw 1; };
  EXPECT_EQ(driver.send(0), 3);
  EXPECT_EQ(driver.send(0), 3);
  EXPECT_EQ(alert.messages.size(), 3u);
  alert.disables = true;
  EXPECT_EQ(driver.send(0), 3);
  EXPECT_EQ(driver.send(0), 3);
  EXPECT_EQ(alert.messages.size(), 4u);
}

TEST(HxImportModule, ASilencedClauseNeverThrowsOn) {
  Driver<9> driver;
  AlertRecorder alert;
  alert.disables = true;
  driver.script.acting = [] { throw std::runtime_error("x"); };
  EXPECT_EQ(driver.send(0), 3);
  alert.rethrows = true;
  EXPECT_EQ(driver.send(0), 3);
}

TEST(HxImportModule, TheAlertCanHaveAnExceptionThrownOn) {
  Driver<10> driver;
  AlertRecorder alert;
  alert.rethrows = true;
  driver.script.acting = [] { throw std::out_of_range("x"); };
  EXPECT_THROW(driver.send(0), std::out_of_range);
  driver.script.acting = [] { throw 5; };
  EXPECT_THROW(driver.send(0), int);
}

TEST(HxImportModule, WithoutAnAlertAnExceptionGives3) {
  Driver<11> driver;
  driver.script.acting = [] { throw std::bad_alloc(); };
  EXPECT_EQ(driver.send(0), 3);
}

TEST(HxImportModule, ANewInstanceWhoseCallThrowsIsNeitherStoredNorDestroyed) {
  Driver<12> driver;
  driver.script.acting = [] { throw std::bad_alloc(); };
  imFileInfoRec8 info{};
  imFileOpenRec8 file{};
  EXPECT_EQ(driver.send(37, nullptr, &info), 3);
  const void* const first = driver.script.lastThis;
  EXPECT_EQ(driver.send(39, nullptr, &file), 3);
  const void* const second = driver.script.lastThis;
  EXPECT_EQ(instanceIn(info), nullptr);
  EXPECT_EQ(instanceIn(file), nullptr);
  EXPECT_EQ(driver.script.alive, 2);
  using Importer = Driver<12>::Importer;
  delete static_cast<const Importer*>(first);
  delete static_cast<const Importer*>(second);
}

}  // namespace
