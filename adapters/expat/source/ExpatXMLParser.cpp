#include "package/expat/ExpatXMLParser.h"

#include <cstddef>
#include <exception>
#include <limits>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include <expat.h>

namespace pkg {

namespace {

constexpr int kBlock = 16384;                    // bytes of a document parsed at a time
constexpr std::size_t kLongestText = 64u << 20;  // bytes; a bound on what a document can hold here
static_assert(kLongestText <= std::numeric_limits<int>::max(), "a text's length is an int");
static_assert(std::is_same_v<XML_Char, char>, "texts are UTF-8");

struct ParserDeleter {
  void operator()(XML_Parser parser) const noexcept { XML_ParserFree(parser); }
};
using ParserPtr = std::unique_ptr<std::remove_pointer_t<XML_Parser>, ParserDeleter>;

}  // namespace

// One document at a time: what expat tells, turned into events of the handler. No exception may
// cross expat's own frames, so each callback keeps what it catches until expat has returned.
class ExpatXMLParser::Session {
public:
  Session() : fParser(XML_ParserCreate(nullptr)) {
    if (!fParser) throw std::bad_alloc();
  }

  void setHandler(IXMLParser_EventHandler* handler) { fHandler = handler; }
  const std::string& errorText() const { return fErrorText; }

  // Makes ready for a new document.
  void begin() {
    XML_ParserReset(fParser.get(), nullptr);
    XML_SetUserData(fParser.get(), this);
    XML_SetElementHandler(fParser.get(), onStartElement, onEndElement);
    XML_SetCharacterDataHandler(fParser.get(), onText);
    XML_SetProcessingInstructionHandler(fParser.get(), onInstruction);
    XML_SetCommentHandler(fParser.get(), onComment);
    XML_SetStartDoctypeDeclHandler(fParser.get(), onDoctype);
    fErrorText.clear();
    fText.clear();
    fException = nullptr;
    fIsBroken = false;
  }

  bool isBroken() const { return fIsBroken; }

  // The next piece of a document that is not broken. Raises what the handler raised, and
  // std::bad_alloc.
  void parse(const char* data, int length, bool last) {
    const XML_Status status = XML_Parse(fParser.get(), data, length, last ? 1 : 0);
    fIsBroken = status != XML_STATUS_OK;
    if (fException) std::rethrow_exception(std::exchange(fException, nullptr));
    if (status == XML_STATUS_OK || !fErrorText.empty()) return;
    const XML_Error error = XML_GetErrorCode(fParser.get());
    if (error == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
    explain(XML_ErrorString(error));
  }

  // What is wrong at the place that has been reached.
  void explain(const char* reason) {
    fErrorText = "line " + std::to_string(XML_GetCurrentLineNumber(fParser.get())) + ", column " +
                 std::to_string(XML_GetCurrentColumnNumber(fParser.get()) + 1) + ": " + reason;
  }

  bool fAwaitsMore = false;  // a document in pieces has begun and not ended

private:
  static Session& of(void* userData) { return *static_cast<Session*>(userData); }

  static void onStartElement(void* self, const char* name, const char** attributes) {
    of(self).deliver([&](IXMLParser_EventHandler& h) { return h.startElement(name, attributes); });
  }
  static void onEndElement(void* self, const char* name) {
    of(self).deliver([&](IXMLParser_EventHandler& h) { return h.endElement(name); });
  }
  static void onText(void* self, const char* data, int length) { of(self).collect(data, length); }
  static void onInstruction(void* self, const char* target, const char* data) {
    of(self).tell([&](IXMLParser_EventHandler& h) {
      return h.processingInstruction(target, data, lengthOf(data));
    });
  }
  static void onComment(void* self, const char* data) {
    of(self).tell([&](IXMLParser_EventHandler& h) { return h.comment(data, lengthOf(data)); });
  }
  // Stopping here keeps every declaration from being seen, and with them entities of any kind.
  static void onDoctype(void* self, const char*, const char*, const char*, int) {
    of(self).stop("a document type declaration is not accepted");
  }

  static int lengthOf(const char* text) {
    return static_cast<int>(std::char_traits<char>::length(text));
  }

  void collect(const char* data, int length) {
    if (isStopped()) return;
    const auto count = static_cast<std::size_t>(length);
    if (count > kLongestText - fText.size()) {
      stop("a text is too long");
      return;
    }
    guard([&] {
      fText.append(data, count);
      return 0;
    });
  }

  // The text that a tag ends, then the tag.
  template <class Event>
  void deliver(const Event& event) {
    if (!fText.empty()) {
      const std::string text = std::move(fText);
      fText.clear();
      tell([&](IXMLParser_EventHandler& h) {
        return h.characterData(text.data(), static_cast<int>(text.size()));
      });
    }
    tell(event);
  }

  template <class Event>
  void tell(const Event& event) {
    if (isStopped() || fHandler == nullptr) return;
    guard([&] { return event(*fHandler); });
  }

  template <class Step>
  void guard(const Step& step) {
    try {
      if (step() == -1) stop("refused by the handler");
    } catch (...) {
      fException = std::current_exception();
      XML_StopParser(fParser.get(), XML_FALSE);
    }
  }

  // expat makes a few more calls after it was told to stop.
  bool isStopped() const { return fException || !fErrorText.empty(); }

  // Called from inside a callback only.
  void stop(const char* reason) {
    try {
      explain(reason);
    } catch (...) {
      fException = std::current_exception();
    }
    XML_StopParser(fParser.get(), XML_FALSE);
  }

  ParserPtr fParser;
  IXMLParser_EventHandler* fHandler = nullptr;  // not owned
  std::string fText;                            // that no tag has ended yet
  std::string fErrorText;
  std::exception_ptr fException;
  bool fIsBroken = false;  // nothing more will be heard of the document
};

ExpatXMLParser::ExpatXMLParser() : fSession(std::make_unique<Session>()) {}

ExpatXMLParser::~ExpatXMLParser() = default;

void ExpatXMLParser::setEventHandler(IXMLParser_EventHandler* handler) {
  fSession->setHandler(handler);
}

void ExpatXMLParser::parse(std::istream& document) {
  fSession->fAwaitsMore = false;
  fSession->begin();
  char block[kBlock];
  for (bool last = false; !last && !fSession->isBroken();) {
    document.read(block, kBlock);
    if (document.bad()) {
      fSession->explain("the document could not be read any further");
      return;
    }
    last = !document;
    fSession->parse(block, static_cast<int>(document.gcount()), last);
  }
}

void ExpatXMLParser::parseChunk(const char* data, int length, bool last) {
  if (!fSession->fAwaitsMore) fSession->begin();
  fSession->fAwaitsMore = !last;
  if (!fSession->isBroken()) fSession->parse(data, length, last);
}

const char* ExpatXMLParser::getErrorText() {
  return fSession->errorText().c_str();
}

void ExpatXMLParser::finish() {
  fSession->setHandler(nullptr);
  fSession->fAwaitsMore = false;
}

}  // namespace pkg
