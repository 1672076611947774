#pragma once

#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "golden/Golden.h"

// The roads on which everything is made to fail: every way of saving a package, and what goes
// before it.
namespace failures {

using golden::Bytes;
using golden::kIn;
using golden::kOut;
using golden::kTrunc;
using golden::Package;
using golden::Stream;

// What a client does. The names of files are relative to where the client lives.
class Client;
using Step = void (*)(Client&);

enum class Output {
  None,         // nothing is saved
  OtherFile,    // "new"; the old file must stay as it is
  PackageFile,  // the old file itself
  NewPackage,   // "new", of which nothing was there before
  Abandoned     // "new", and given up
};

struct Way {
  const char* name;
  Bytes old;  // the package that is there before; empty: none, or one that `open` makes
  Output output;
  Step open;    // opens the package and meets every old entry
  Step change;  // outside an update
  Step save;
  std::map<std::string, Bytes> saved;  // what the output then holds

  friend std::ostream& operator<<(std::ostream& out, const Way& way) { return out << way.name; }
};

// A parser that wants the whole document, and gives up with an exception of its own where the
// stream fails.
struct DocumentCutShort {};
class WholeDocumentParser : public pkg::IXMLParser {
public:
  void setEventHandler(pkg::IXMLParser_EventHandler* handler) override { fHandler = handler; }
  void parse(std::istream& document) override;
  void parseChunk(const char*, int, bool) override {}
  const char* getErrorText() override { return ""; }
  void finish() override { fHandler = nullptr; }

private:
  pkg::IXMLParser_EventHandler* fHandler = nullptr;
};

// What a client holds of a package. Goes before the file system.
class Client {
public:
  Client(pkg::IPkgFileSystem<>& fileSystem, std::string place)
      : files(fileSystem), folder(std::move(place)) {}
  ~Client() { drop(); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  std::string path(const std::string& name) const { return folder + name; }
  void open(std::ios_base::openmode mode, const std::string& name = "old");
  // Makes the entry objects of old entries, which read their local headers.
  void meet(const std::vector<std::string>& names);
  // Writes an entry, piece by piece.
  void write(const std::string& name, const Bytes& content, pkg::CompressionMethod method);
  // Writes a text, in one call.
  void put(const Stream& stream, std::string_view text);
  // Reads an entry from its begin to its end.
  Bytes read(const std::string& name);
  // Lets go of everything, the package last.
  void drop();

  pkg::IPkgFileSystem<>& files;
  std::string folder;
  golden::PolicyAnswers policies;
  WholeDocumentParser parser;
  bool usesParser = false;
  std::vector<pkg::SPRefType<pkg::IPkgFile<>>> entries;
  std::vector<pkg::SPRefType<pkg::IPkgDirectory<>>> directories;
  std::vector<Stream> streams;
  Package package;
  bool isPutting = false;   // what is being written, or could not be, is the client's own
  std::vector<Bytes> seen;  // what the steps have read
};

// Entries of the old packages that no way changes.
const std::map<std::string, Bytes>& unchangedEntries();

const std::vector<Way>& ways();

}  // namespace failures
