#include <new>
#include <sstream>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "package/expat/ExpatXMLParser.h"

#include "unit/expat/EventRecorder.h"

namespace {

using pkg::ExpatXMLParser;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

// What a whole document gives, with the error text behind it where there is one.
std::string eventsOf(const std::string& text) {
  ExpatXMLParser parser;
  EventRecorder recorder;
  std::istringstream document(text);
  parser.setEventHandler(&recorder);
  parser.parse(document);
  const std::string error = parser.getErrorText();
  parser.finish();
  return recorder.log + error;
}

// Delivers a few bytes, then fails as a damaged file does.
class BreakingBuffer : public std::streambuf {
public:
  explicit BreakingBuffer(std::string text) : fText(std::move(text)) {
    setg(fText.data(), fText.data(), fText.data() + fText.size());
  }

protected:
  int_type underflow() override { throw std::runtime_error("unreadable"); }

private:
  std::string fText;
};

TEST(ExpatXMLParser, ElementsAttributesAndTextArriveInOrder) {
  EXPECT_EQ(eventsOf("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                     "<a x=\"1\" y=\"&lt;2&gt;\"><b/>text &amp; more</a>\n"),
            "<a x=1 y=<2>\n<b\n</b\ntext text & more\n</a\n");
}

TEST(ExpatXMLParser, PrefixesStayPartOfNames) {
  EXPECT_EQ(eventsOf("<q:a xmlns:q=\"urn:x\"/>"), "<q:a xmlns:q=urn:x\n</q:a\n");
}

TEST(ExpatXMLParser, OneTextComesInOneCallAcrossLinesReferencesAndSections) {
  EXPECT_EQ(eventsOf("<a>one\r\ntwo&#33;<![CDATA[<three>]]> four</a>"),
            "<a\ntext one\ntwo!<three> four\n</a\n");
}

TEST(ExpatXMLParser, OneTextComesInOneCallAcrossTheBlocksOfAStream) {
  const std::string text(100000, 'x');
  EXPECT_EQ(eventsOf("<a>" + text + "</a>"), "<a\ntext " + text + "\n</a\n");
}

TEST(ExpatXMLParser, CommentsAndInstructionsInsideATextComeBeforeItAndDoNotCutIt) {
  EXPECT_EQ(eventsOf("<a>one<!--note--> two<?go now?> three</a>"),
            "<a\n! note\n? go now\ntext one two three\n</a\n");
}

TEST(ExpatXMLParser, CommentsAndInstructionsOutsideTheRootElementArrive) {
  EXPECT_EQ(eventsOf("<!--before--><a/><?after?>"), "! before\n<a\n</a\n? after \n");
}

TEST(ExpatXMLParser, TextInOtherEncodingsArrivesAsUTF8) {
  EXPECT_EQ(eventsOf("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\xE9</a>"),
            "<a\ntext \xC3\xA9\n</a\n");
  const std::string utf16("\xFF\xFE<\0a\0>\0\xE9\0<\0/\0a\0>\0", 18);
  EXPECT_EQ(eventsOf(utf16), "<a\ntext \xC3\xA9\n</a\n");
}

TEST(ExpatXMLParser, ANewParserReportsNoError) {
  EXPECT_STREQ(ExpatXMLParser().getErrorText(), "");
}

TEST(ExpatXMLParser, ABrokenDocumentDeliversWhatCameBeforeAndTellsLineAndColumn) {
  EXPECT_EQ(eventsOf("<a>\n  <b>\n  </c>\n</a>"),
            "<a\ntext \n  \n<b\nline 3, column 5: mismatched tag");
}

TEST(ExpatXMLParser, ColumnsCountCharactersFromOne) {
  EXPECT_THAT(eventsOf("<a>\xC3\xA9\xC3\xA9</b>"), EndsWith("line 1, column 8: mismatched tag"));
  EXPECT_THAT(eventsOf("&"), StartsWith("line 1, column 1: "));
}

TEST(ExpatXMLParser, AnEmptyDocumentIsBroken) {
  EXPECT_EQ(eventsOf(""), "line 1, column 1: no element found");
}

TEST(ExpatXMLParser, ADocumentThatStopsHalfWayIsBroken) {
  EXPECT_EQ(eventsOf("<a>\n<b>te"), "<a\ntext \n\n<b\nline 2, column 6: no element found");
}

TEST(ExpatXMLParser, AnEncodingThatIsNotKnownIsAnError) {
  EXPECT_THAT(eventsOf("<?xml version=\"1.0\" encoding=\"x-none\"?><a/>"),
              HasSubstr("unknown encoding"));
}

TEST(ExpatXMLParser, BytesThatAreNoUTF8AreAnError) {
  EXPECT_THAT(eventsOf("<a>\xFF</a>"),
              EndsWith("line 1, column 4: not well-formed (invalid token)"));
}

TEST(ExpatXMLParser, AStreamThatFailsBreaksTheDocumentWhereItFailed) {
  BreakingBuffer buffer("<a>\n<b/>");
  std::istream document(&buffer);
  ExpatXMLParser parser;
  parser.parse(document);
  EXPECT_THAT(parser.getErrorText(), EndsWith("the document could not be read any further"));
}

TEST(ExpatXMLParser, AnExceptionOfTheStreamPassesThrough) {
  BreakingBuffer buffer("<a>");
  std::istream document(&buffer);
  document.exceptions(std::ios::badbit);
  ExpatXMLParser parser;
  EXPECT_THROW(parser.parse(document), std::runtime_error);
}

// Nine levels of ten are a billion; what is refused is the declaration, before anything grows.
TEST(ExpatXMLParser, AnEntityExpansionBombIsRefusedAtItsDocumentTypeDeclaration) {
  std::string bomb = "<?xml version=\"1.0\"?>\n<!DOCTYPE a [\n<!ENTITY e0 \"ha\">\n";
  for (int level = 1; level <= 9; ++level) {
    bomb += "<!ENTITY e" + std::to_string(level) + " \"";
    for (int i = 0; i < 10; ++i)
      bomb += "&e" + std::to_string(level - 1) + ";";
    bomb += "\">\n";
  }
  bomb += "]>\n<a>&e9;</a>";
  EXPECT_THAT(
      eventsOf(bomb),
      testing::MatchesRegex("line 2, column [0-9]+: a document type declaration is not accepted"));
}

TEST(ExpatXMLParser, ExternalEntitiesAndExternalSubsetsAreNeverFetched) {
  EXPECT_THAT(eventsOf("<!DOCTYPE a [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><a>&x;</a>"),
              EndsWith("a document type declaration is not accepted"));
  EXPECT_THAT(eventsOf("<!DOCTYPE a SYSTEM \"http://localhost/a.dtd\"><a/>"),
              EndsWith("a document type declaration is not accepted"));
}

TEST(ExpatXMLParser, AnUndefinedEntityIsAnError) {
  EXPECT_EQ(eventsOf("<a>&x;</a>"), "<a\nline 1, column 4: undefined entity");
}

TEST(ExpatXMLParser, ATextOfMoreThan64MiBIsRefused) {
  const std::string piece(1 << 20, 'x');
  ExpatXMLParser parser;
  EventRecorder recorder;
  parser.setEventHandler(&recorder);
  parser.parseChunk("<a>", 3, false);
  for (int mebibyte = 0; mebibyte < 64; ++mebibyte)
    parser.parseChunk(piece.data(), 1 << 20, false);
  EXPECT_STREQ(parser.getErrorText(), "");
  parser.parseChunk("xy</a>", 6, true);
  EXPECT_THAT(parser.getErrorText(), EndsWith("a text is too long"));
  EXPECT_EQ(recorder.log, "<a\n");
}

class ExpatXMLParserStops : public testing::TestWithParam<const char*> {};

// Every kind of event refuses in its turn: nothing more is heard, not even the end of the same tag.
TEST_P(ExpatXMLParserStops, AtTheEventThatTheHandlerRefuses) {
  EventRecorder recorder;
  const std::string refused = GetParam();
  recorder.react = [&](const std::string& line) { return line == refused ? -1 : 0; };
  std::istringstream document("<a><!--note--><?go now?>text<b/><c/></a>");
  ExpatXMLParser parser;
  parser.setEventHandler(&recorder);
  parser.parse(document);
  EXPECT_THAT(recorder.log, EndsWith(refused + "\n"));
  EXPECT_THAT(parser.getErrorText(), EndsWith("refused by the handler"));
}

// Every kind of event throws in its turn; the parser is whole afterwards.
TEST_P(ExpatXMLParserStops, AtTheEventInWhichTheHandlerThrowsAndPassesTheExceptionOn) {
  EventRecorder recorder;
  const std::string fatal = GetParam();
  recorder.react = [&](const std::string& line) {
    if (line == fatal) throw std::domain_error(line);
    return 0;
  };
  ExpatXMLParser parser;
  parser.setEventHandler(&recorder);
  const std::string text = "<a><!--note--><?go now?>text<b/><c/></a>";
  std::istringstream document(text);
  try {
    parser.parse(document);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const std::domain_error& e) {
    EXPECT_EQ(e.what(), fatal);
  }
  EXPECT_THAT(recorder.log, testing::Not(HasSubstr(fatal + "\n")));

  recorder.log.clear();
  recorder.react = [](const std::string&) { return 0; };
  std::istringstream again(text);
  parser.parse(again);
  EXPECT_STREQ(parser.getErrorText(), "");
  EXPECT_EQ(recorder.log, "<a\n! note\n? go now\ntext text\n<b\n</b\n<c\n</c\n</a\n");
}

INSTANTIATE_TEST_SUITE_P(EachEvent, ExpatXMLParserStops,
                         testing::Values("<a", "! note", "? go now", "text text", "<b", "</b",
                                         "</a"));

TEST(ExpatXMLParser, SomethingThatIsNoExceptionClassPassesThroughToo) {
  EventRecorder recorder;
  recorder.react = [](const std::string&) -> int { throw 42; };
  std::istringstream document("<a/>");
  ExpatXMLParser parser;
  parser.setEventHandler(&recorder);
  EXPECT_THROW(parser.parse(document), int);
}

TEST(ExpatXMLParser, OtherAnswersThanMinusOneGoOn) {
  EventRecorder recorder;
  recorder.react = [](const std::string&) { return 1; };
  std::istringstream document("<a><b/></a>");
  ExpatXMLParser parser;
  parser.setEventHandler(&recorder);
  parser.parse(document);
  EXPECT_EQ(recorder.log, "<a\n<b\n</b\n</a\n");
}

TEST(ExpatXMLParser, WithoutAHandlerADocumentIsOnlyChecked) {
  ExpatXMLParser parser;
  std::istringstream good("<a>text<b/></a>");
  parser.parse(good);
  EXPECT_STREQ(parser.getErrorText(), "");
  std::istringstream bad("<a>");
  parser.parse(bad);
  EXPECT_STREQ(parser.getErrorText(), "line 1, column 4: no element found");
}

TEST(ExpatXMLParser, TheErrorOutlivesFinishAndGoesWithTheNextDocument) {
  ExpatXMLParser parser;
  std::istringstream bad("<a>");
  parser.parse(bad);
  parser.finish();
  EXPECT_STREQ(parser.getErrorText(), "line 1, column 4: no element found");
  std::istringstream good("<a/>");
  parser.parse(good);
  EXPECT_STREQ(parser.getErrorText(), "");
}

TEST(ExpatXMLParser, FinishEndsTheUseOfTheHandler) {
  ExpatXMLParser parser;
  EventRecorder recorder;
  parser.setEventHandler(&recorder);
  parser.finish();
  std::istringstream document("<a/>");
  parser.parse(document);
  EXPECT_EQ(recorder.log, "");
}

TEST(ExpatXMLParser, ADocumentInSingleBytesGivesTheSameEvents) {
  const std::string text = "<a k=\"v\">one<!--note--> two &amp; <b/></a>";
  ExpatXMLParser parser;
  EventRecorder recorder;
  parser.setEventHandler(&recorder);
  for (std::size_t i = 0; i < text.size(); ++i)
    parser.parseChunk(&text[i], 1, i + 1 == text.size());
  EXPECT_STREQ(parser.getErrorText(), "");
  EXPECT_EQ(recorder.log, eventsOf(text));
}

TEST(ExpatXMLParser, AnEmptyLastPieceEndsADocument) {
  ExpatXMLParser parser;
  parser.parseChunk("<a>", 3, false);
  parser.parseChunk(nullptr, 0, true);
  EXPECT_STREQ(parser.getErrorText(), "line 1, column 4: no element found");
}

TEST(ExpatXMLParser, BehindTheLastPieceANewDocumentBegins) {
  ExpatXMLParser parser;
  EventRecorder recorder;
  parser.setEventHandler(&recorder);
  parser.parseChunk("<a/>", 4, true);
  parser.parseChunk("<b/>", 4, true);
  EXPECT_STREQ(parser.getErrorText(), "");
  EXPECT_EQ(recorder.log, "<a\n</a\n<b\n</b\n");
}

TEST(ExpatXMLParser, TheRestOfABrokenDocumentIsIgnoredUntilItsLastPiece) {
  ExpatXMLParser parser;
  EventRecorder recorder;
  parser.setEventHandler(&recorder);
  parser.parseChunk("<a></b>", 7, false);
  parser.parseChunk("<c/>", 4, false);
  parser.parseChunk("<d/>", 4, true);
  EXPECT_EQ(recorder.log, "<a\n");
  EXPECT_STREQ(parser.getErrorText(), "line 1, column 6: mismatched tag");
  parser.parseChunk("<e/>", 4, true);
  EXPECT_EQ(recorder.log, "<a\n<e\n</e\n");
}

TEST(ExpatXMLParser, FinishAndParseGiveUpADocumentInPieces) {
  ExpatXMLParser parser;
  parser.parseChunk("<a>", 3, false);
  parser.finish();
  parser.parseChunk("<b/>", 4, true);
  EXPECT_STREQ(parser.getErrorText(), "");
  parser.parseChunk("<a>", 3, false);
  std::istringstream document("<b/>");
  parser.parse(document);
  EXPECT_STREQ(parser.getErrorText(), "");
  parser.parseChunk("<c/>", 4, true);
  EXPECT_STREQ(parser.getErrorText(), "");
}

TEST(ExpatXMLParser, DeepNestingNeedsNoStack) {
  std::string text;
  for (int i = 0; i < 200000; ++i)
    text += "<a>";
  for (int i = 0; i < 200000; ++i)
    text += "</a>";
  ExpatXMLParser parser;
  std::istringstream document(text);
  parser.parse(document);
  EXPECT_STREQ(parser.getErrorText(), "");
}

}  // namespace
