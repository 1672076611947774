#pragma once

#include <istream>

#include "package/detail/Visibility.h"

namespace pkg {

// Receives what a parser finds. Each operation returns 0 to go on, -1 to have parsing stop.
class QCF_API IXMLParser_EventHandler {
public:
  virtual ~IXMLParser_EventHandler() = default;
  // `attributes` is a flat array of name and value, ended by a null. All texts are UTF-8 and end
  // with the call.
  virtual int startElement(const char* name, const char** attributes) = 0;
  virtual int endElement(const char* name) = 0;
  // `data` holds `length` bytes, not terminated. One text should come in one call: of a property's
  // value that comes in pieces, the last piece stays.
  virtual int characterData(const char* data, int length) = 0;
  // `length` counts the bytes of `data`.
  virtual int processingInstruction(const char* target, const char* data, int length) = 0;
  virtual int comment(const char* data, int length) = 0;
};

// How a client supplies XML parsing; without one, packages have no generic properties. The client
// owns it and keeps it alive for as long as any package that was given it. It serves one document
// at a time: setEventHandler, parse, finish.
class QCF_API IXMLParser {
public:
  // `handler` is not owned and lives until finish() has returned.
  virtual void setEventHandler(IXMLParser_EventHandler* handler) = 0;
  // Parses the document from the stream's position to its end. Exceptions of the handler pass
  // through.
  virtual void parse(std::istream& document) = 0;
  // Parses a document that arrives in pieces, `last` with the final one. The library never calls
  // it.
  virtual void parseChunk(const char* data, int length, bool last) = 0;
  // What was wrong with the document; empty where nothing was. Valid until the next call. The
  // library never calls it.
  virtual const char* getErrorText() = 0;
  // Ends the use of the handler and readies the parser for the next document.
  virtual void finish() = 0;
  virtual ~IXMLParser() = default;
};

}  // namespace pkg
