#pragma once

#include <istream>
#include <memory>

#include "package/IXMLParser.h"
#include "package/detail/Visibility.h"

namespace pkg {

// An IXMLParser on expat, for clients that want properties in their packages. The client owns it
// and keeps it alive for as long as any package that was given it.
//
// A document may be in any encoding that expat knows: UTF-8, UTF-16, ISO-8859-1 and US-ASCII. It
// must not hold a document type declaration: none is read, so no entity is ever defined, expanded
// or fetched. One text may have at most 64 MiB.
//
// Names, with their prefixes, arrive as they are written. The text between two tags arrives in one
// call, CDATA sections included; comments and processing instructions inside it are delivered
// before it and do not cut it. White space between tags is text, too.
//
// A document that cannot be parsed raises nothing: the events stop where it breaks, and
// getErrorText() tells where and why. Exceptions of the handler, and of the stream where the client
// has enabled them, pass through parse and parseChunk; so does std::bad_alloc.
//
// One parser serves one document at a time, on one thread at a time, and as many as one likes one
// after the other.
class QCF_API ExpatXMLParser final : public IXMLParser {
public:
  ExpatXMLParser();
  ~ExpatXMLParser() override;
  ExpatXMLParser(const ExpatXMLParser&) = delete;
  ExpatXMLParser& operator=(const ExpatXMLParser&) = delete;

  // Not owned. Null has documents checked without telling anybody what is in them. Not to be called
  // from inside a handler, as none of these operations.
  void setEventHandler(IXMLParser_EventHandler* handler) override;
  // Parses a whole document, from the stream's position to its end. Gives up a document that
  // parseChunk has begun.
  void parse(std::istream& document) override;
  // Parses the next `length` bytes of a document; with `last` the document ends behind them. After
  // a piece in which the document broke, the rest of it is ignored. Behind a last piece the next
  // call begins a new document.
  void parseChunk(const char* data, int length, bool last) override;
  // "line 3, column 7: mismatched tag": what was wrong with the latest document, both numbers
  // counted from 1, the column in characters. Empty where nothing was. Valid until the next
  // document begins; finish() leaves it.
  const char* getErrorText() override;
  // Drops the handler, and a document that is not complete.
  void finish() override;

private:
  class Session;
  std::unique_ptr<Session> fSession;
};

}  // namespace pkg
