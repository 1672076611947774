#include <memory>
#include <sstream>
#include <string>

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include "AlertRecorder.h"
#include "QFL/Alert.h"
#include "QFL/Hash.h"
#include "QFL/Module.h"
#include "QFL/Strings.h"
#include "qvacore/Guid.h"
#include "qvacore/Localizer.h"
#include "qvacore/Unicode.h"

namespace {

using ModulePtr = QFL::ObjectPtr<QFL::Module, QFL::AtomicValue>;

struct CountedModule : QFL::Module {
  explicit CountedModule(int& destroyed) : Module(nullptr), fDestroyed(destroyed) {}
  ~CountedModule() override { ++fDestroyed; }
  int& fDestroyed;
};

TEST(ObjectPtr, IsTwoWords) {
  EXPECT_EQ(sizeof(ModulePtr), 2 * sizeof(void*));
}

TEST(ObjectPtr, TheLastReferenceDestroysTheObject) {
  int destroyed = 0;
  {
    ModulePtr first(new CountedModule(destroyed));
    ModulePtr second = first;
    first = ModulePtr();
    EXPECT_EQ(destroyed, 0);
    const ModulePtr third = std::move(second);
    EXPECT_EQ(second.Get(), nullptr);
    EXPECT_NE(third.Get(), nullptr);
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(Module, CreationReplacesWhatTheReferenceHeld) {
  int destroyed = 0;
  ModulePtr module(new CountedModule(destroyed));
  QFL::Module::Create(nullptr, module);
  EXPECT_EQ(destroyed, 1);
  EXPECT_NE(module.Get(), nullptr);
}

TEST(Alert, WithoutAHandlerNothingIsSilencedOrThrownOn) {
  bool disabled = false;
  EXPECT_FALSE(QFL::ThrowAfterUnhandledExceptionAlert(disabled, "text"));
  EXPECT_FALSE(disabled);
}

TEST(Alert, TheHandlerGetsTheTextAndDecides) {
  AlertRecorder alert;
  alert.disables = alert.rethrows = true;
  bool disabled = false;
  EXPECT_TRUE(QFL::ThrowAfterUnhandledExceptionAlert(disabled, "text"));
  EXPECT_TRUE(disabled);
  EXPECT_EQ(alert.messages, std::vector<std::string>{"text"});
}

TEST(EndOfLine, WritesANewlineAndFlushes) {
  struct Buffer : std::stringbuf {
    int sync() override { return ++flushes, 0; }
    int flushes = 0;
  } buffer;
  std::ostream stream(&buffer);
  stream << "a" << QFL::ENDL;
  EXPECT_EQ(buffer.str(), "a\n");
  EXPECT_EQ(buffer.flushes, 1);
}

TEST(Unicode, EveryLengthOfSequenceIsConverted) {
  const std::u16string units = u"a\u00E9\u20AC\U0001F600";
  const std::string bytes = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
  EXPECT_EQ(qvacore::utility::UTF16to8(units.c_str()), bytes);
  EXPECT_EQ(QFL::MakeStdString(units), bytes);
  EXPECT_EQ(qvacore::utility::UTF8to16(bytes), units);
}

TEST(Unicode, TheLimitsOfEachLengthAreKept) {
  for (const char32_t point : {U'\x7F', U'\x80', U'\x7FF', U'\x800', U'\xD7FF', U'\xE000',
                               U'\xFFFF', U'\x10000', U'\x10FFFF'}) {
    std::u16string units;
    if (point < 0x10000) {
      units.push_back(static_cast<char16_t>(point));
    } else {
      units.push_back(static_cast<char16_t>(0xD7C0 + (point >> 10)));
      units.push_back(static_cast<char16_t>(0xDC00 + (point & 0x3FF)));
    }
    EXPECT_EQ(qvacore::utility::UTF8to16(qvacore::utility::UTF16to8(units.c_str())), units);
  }
}

TEST(Unicode, ALoneSurrogateBecomesTheReplacementCharacter) {
  const std::string replaced = "\xEF\xBF\xBD";
  const char16_t high = 0xD83D, low = 0xDE00;
  for (const auto& [units, expected] : std::vector<std::pair<std::u16string, std::string>>{
           {{high}, replaced},
           {{low}, replaced},
           {{high, u'a'}, replaced + "a"},
           {{low, high}, replaced + replaced},
           {{high, high, low}, replaced + "\xF0\x9F\x98\x80"},
           {{u'a', low, u'b'}, "a" + replaced + "b"}}) {
    EXPECT_EQ(qvacore::utility::UTF16to8(units.c_str()), expected);
    EXPECT_EQ(QFL::MakeStdString(units), expected);
  }
}

TEST(Unicode, BytesThatAreNoUTF8BecomeTheReplacementCharacterOneByOne) {
  const auto replaced = [](std::size_t count) { return std::u16string(count, u'\xFFFD'); };
  EXPECT_EQ(qvacore::utility::UTF8to16("\x80"), replaced(1));
  EXPECT_EQ(qvacore::utility::UTF8to16("\xC0\xAF"), replaced(2));          // overlong
  EXPECT_EQ(qvacore::utility::UTF8to16("\xED\xA0\x80"), replaced(3));      // a surrogate
  EXPECT_EQ(qvacore::utility::UTF8to16("\xF4\x90\x80\x80"), replaced(4));  // beyond the last
  EXPECT_EQ(qvacore::utility::UTF8to16("\xFF\xFE"), replaced(2));
  EXPECT_EQ(qvacore::utility::UTF8to16("a\xE2\x82"), u"a" + replaced(2));  // cut off
  EXPECT_EQ(qvacore::utility::UTF8to16("\xE2\x82z"), replaced(2) + u"z");
}

TEST(Unicode, AHostCanReplaceTheConversions) {
  qvacore::utility::SetUTF16to8Converter([](const char16_t*) { return std::string("mine"); });
  QFL::SetStdStringMaker([](const std::u16string&) { return std::string("mine too"); });
  EXPECT_EQ(qvacore::utility::UTF16to8(u"x"), "mine");
  EXPECT_EQ(QFL::MakeStdString(u"x"), "mine too");
  qvacore::utility::SetUTF16to8Converter({});
  QFL::SetStdStringMaker({});
  EXPECT_EQ(qvacore::utility::UTF16to8(u"x"), "x");
  EXPECT_EQ(QFL::MakeStdString(u"x"), "x");
}

TEST(Localizer, GivesTheDefaultTextUnlessAHostKnowsBetter) {
  auto& localizer = qvacore::config::Localizer::Get();
  EXPECT_EQ(localizer.GetString("$$$/Key=A text = \xC3\xA9"), u"A text = \u00E9");
  EXPECT_EQ(localizer.GetString("$$$/Key="), u"");
  EXPECT_EQ(localizer.GetString("$$$/Key"), u"");
  localizer.SetLookup([](const std::string& key) {
    return u"the host's " + std::u16string(key.begin(), key.end());
  });
  EXPECT_EQ(localizer.GetString("$$$/Key=A text"), u"the host's $$$/Key=A text");
  localizer.SetLookup({});
}

TEST(Guid, IsWrittenInFiveGroups) {
  const qvacore::utility::Guid guid(0x01234567, 0x89AB, 0xCDEF,
                                    {0x00, 0x10, 0x20, 0x30, 0x40, 0x50, 0xFE, 0xFF});
  EXPECT_EQ(guid.AsString(), u"01234567-89ab-cdef-0010-20304050feff");
}

TEST(Hash, DependsOnEveryByteAndItsPlace) {
  const auto hashOf = [](const std::string& bytes) {
    QFL::HashValue hash;
    QFL::MixHash::MixInData(hash, bytes.data(), bytes.size());
    return hash.words;
  };
  EXPECT_EQ(hashOf("abc"), hashOf("abc"));
  EXPECT_NE(hashOf("abc"), hashOf("abd"));
  EXPECT_NE(hashOf("abc"), hashOf("acb"));
  EXPECT_NE(hashOf(std::string(1, '\0')), hashOf(""));
}

TEST(Bundles, AnIdentifierThatNoLoadedBundleHasIsNotFound) {
  EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("com.mediakiln.no.such.bundle")), nullptr);
}

}  // namespace
