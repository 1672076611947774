#include "failures/Ways.h"

#include <algorithm>
#include <stdexcept>

namespace failures {

namespace {

using golden::prose;
using pkg::CompressionDeflated;
using pkg::CompressionStored;

// Bytes that do not deflate.
Bytes noise(std::size_t length, std::uint32_t seed) {
  Bytes bytes(length, '\0');
  for (char& byte : bytes) {
    seed = seed * 1664525 + 1013904223;
    byte = static_cast<char>(seed >> 24);
  }
  return bytes;
}

const Bytes kStored = noise(20000, 1);
const Bytes kDeflated = noise(18000, 2) + prose(9000);
const Bytes kNewDeflated = prose(8000) + noise(9000, 3);
const Bytes kNewStored = noise(17000, 4);
const Bytes kOldText = prose(9000);
const Bytes kNewText = prose(5000);
const Bytes kComment = "a comment of the package, longer than its record";
const char kDocument[] = "/META-INF/pkgproperties.xml";
const Bytes kProperties =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<pkgProperties xmlns=\"http://ns.quillon.example/qcf/1.0/\">\n"
    "<package/>\n"
    "<entries>\n"
    "<entry path=\"stored.bin\">\n"
    "<prop key=\"mac_type\">TEXT</prop>\n"
    "</entry>\n"
    "</entries>\n"
    "</pkgProperties>\n";

void add(zipbytes::File& file, const Bytes& name, const Bytes& content) {
  file.add(golden::storedEntry(name, content), content);
}
void addDeflated(zipbytes::File& file, const Bytes& name, const Bytes& content) {
  file.add(golden::deflatedEntry(name, content), golden::deflated(content));
}

// What every old package holds behind its first entry.
void addOldEntries(zipbytes::File& file) {
  golden::Entry commented = golden::storedEntry("stored.bin", kStored);
  commented.comment = "of the entry";
  commented.centralExtra = zipbytes::extraBlock(0x7777, "unknown");
  file.add(commented, kStored);
  addDeflated(file, "deflated.txt", kDeflated);
  add(file, "empty", "");
  file.add(golden::directoryEntry("dir/"), "");
  add(file, "removed.bin", "goes away");
}

Bytes oldPackage() {
  zipbytes::File file;
  add(file, "mimetype", "application/x-old");
  addOldEntries(file);
  addDeflated(file, "changed.txt", kOldText);
  return file.bytes(file.end(kComment));
}

// Its type is deflated, and comes late.
Bytes packageToRepair() {
  zipbytes::File file;
  addOldEntries(file);
  addDeflated(file, "mimetype", "application/x-late");
  return file.bytes();
}

Bytes packageWithProperties() {
  zipbytes::File file;
  add(file, "mimetype", "application/x-old");
  addOldEntries(file);
  addDeflated(file, kDocument + 1, kProperties);
  return file.bytes();
}

void openOld(Client& client) {
  client.open(kIn | kOut);
  client.meet(
      {"mimetype", "stored.bin", "deflated.txt", "empty", "dir/", "removed.bin", "changed.txt"});
}

void openToRepair(Client& client) {
  client.policies.conformance = 1;
  client.open(kIn | kOut);
  client.meet({"stored.bin", "deflated.txt", "empty", "dir/", "removed.bin"});
}

void openWithProperties(Client& client) {
  client.usesParser = true;
  client.open(kIn | kOut);
  client.meet(
      {"mimetype", "stored.bin", "deflated.txt", "empty", "dir/", "removed.bin", kDocument + 1});
}

void openReadOnly(Client& client) {
  client.open(kIn);
  client.meet({"deflated.txt"});
}

void openNew(Client& client) {
  client.open(kIn | kOut | kTrunc, "new");
}

// Nothing but the directory has been read.
void openUnmet(Client& client) {
  client.open(kIn | kOut);
}

void removeOne(Client& client) {
  client.package->getFile("removed.bin", true)->remove();
}

// Everything goes into temporary files, and one of them is read again.
void changeAll(Client& client) {
  client.write("new.txt", kNewDeflated, CompressionDeflated);
  client.write("new.bin", "what it held at first", CompressionStored);
  client.write("new.bin", kNewStored, CompressionStored);
  client.write("new-empty", "", CompressionDeflated);
  client.package->getDirectory("new-dir", false)->create();
  client.write("changed.txt", kNewText, CompressionDeflated);
  removeOne(client);
  client.seen.push_back(client.read("new.txt"));
}

void nothing(Client&) {}

void saveAs(Client& client) {
  client.package->saveAs(client.path("new"), kIn | kOut | kTrunc);
}

// Straight into the output, and what comes beside it through the queue.
void writeInside(Client& client) {
  client.write("direct.txt", kNewDeflated, CompressionDeflated);
  client.write("direct.bin", kNewStored, CompressionStored);
  client.write("direct-empty", "", CompressionDeflated);
  client.package->getDirectory("direct-dir", false)->create();
  const auto file = client.package->getFile("outer.txt", false);
  client.streams.push_back(file->open(kOut, false));
  const Stream outer = client.streams.back();
  outer->exceptions(std::ios_base::badbit);
  client.put(outer, kOldText);
  client.write("queued.txt", kNewDeflated, CompressionDeflated);
  client.package->getDirectory("queued-dir", false)->create();
  outer->close();
}

void saveInside(Client& client) {
  client.package->beginUpdate(client.path("new"), kIn | kOut | kTrunc);
  writeInside(client);
  client.package->endUpdate();
}

void saveNew(Client& client) {
  client.package->beginUpdate();
  writeInside(client);
  client.package->endUpdate();
}

void saveInOldFile(Client& client) {
  client.package->beginUpdate();
  writeInside(client);
  client.package->endUpdate();
}

// What the update has made is forgotten, also where it still writes.
void saveNothing(Client& client) {
  client.package->beginUpdate(client.path("new"), kIn | kOut | kTrunc);
  writeInside(client);
  client.streams.push_back(client.package->getFile("open.txt", false)->open(kOut, false));
  client.streams.back()->exceptions(std::ios_base::badbit);
  client.put(client.streams.back(), kNewText);
  client.package->cancelUpdate();
  for (const char* name : {"direct.txt", "outer.txt", "queued.txt", "open.txt"}) {
    if (client.package->entryExists(name) != pkg::PkgEntryNone) throw std::logic_error(name);
  }
}

// The first update of a package that has another.
void openAfterAnUpdate(Client& client) {
  client.open(kIn | kOut | kTrunc, "old");
  client.package->beginUpdate();
  client.write("mimetype", "application/x-old", CompressionStored);
  client.write("stored.bin", kStored, CompressionStored);
  client.write("deflated.txt", kDeflated, CompressionDeflated);
  client.write("empty", "", CompressionStored);
  client.package->getDirectory("dir/", false)->create();
  client.write("removed.bin", "goes away", CompressionStored);
  client.package->endUpdate();
}

void saveInPlace(Client& client) {
  client.package->doUNSAFEUpdateInPlace();
}

void createConforming(Client& client) {
  client.policies.conformance = 1;
  client.package = pkg::QCFPackageFactory().createConformingPackage(
      client.path("new"), "application/x-new", true, &client.files, &client.policies, nullptr);
  writeInside(client);
  client.package->endUpdate();
}

void readProperties(Client& client) {
  const auto file = client.package->getFile("stored.bin", true);
  client.seen.push_back(file->getProperty(pkg::QCFPropertyMacType));
  removeOne(client);
}

void saveProperties(Client& client) {
  client.package->beginUpdate(client.path("new"), kIn | kOut | kTrunc);
  client.package->getFile("deflated.txt", true)->setProperty(pkg::QCFPropertyDateTime, "today");
  client.package->endUpdate();
}

// Back and forth in deflated data, by two streams one after the other.
void readAndSeek(Client& client) {
  for (const long long target : {12000, 100}) {
    const auto file = client.package->getFile("deflated.txt", true);
    client.streams.push_back(file->open(kIn, false));
    const Stream stream = client.streams.back();
    stream->exceptions(std::ios_base::badbit);
    Bytes text(5000, '\0');
    stream->read(text.data(), 5000);
    stream->seekg(target);
    stream->read(text.data(), 5000);
    text.resize(static_cast<std::size_t>(stream->gcount()));
    client.seen.push_back(text);
    stream->close();
  }
}

// Every entry, and those of each directory.
void walk(Client& client) {
  boost::shared_ptr<pkg::IPkgEntryIteratorImpl<>> iterator;
  client.package->initIterator(iterator, {}, "");
  for (; iterator->isValid(); iterator->increment()) {
    const auto entry = iterator->dereference();
    client.seen.push_back(entry->getName());
    if (entry->getEntryType() == pkg::PkgEntryDirectory)
      client.directories.push_back(entry->toDirectory());
  }
  client.directories.push_back(client.package->getRootDirectory());
  for (const auto& directory : client.directories) {
    client.package->initIterator(iterator, directory, "");
    for (; iterator->isValid(); iterator->increment())
      client.seen.push_back(iterator->dereference()->getName());
  }
}

void acceptAndReadRaw(Client& client) {
  const bool accepted =
      pkg::QCFPackageFactory().acceptPackage(client.path("old"), &client.files, nullptr, nullptr);
  client.seen.emplace_back(accepted ? "yes" : "");
  for (const char* name : {"stored.bin", "deflated.txt", "empty"}) {
    const Stream stream = client.package->getFile(name, true)->open(kIn, true);
    stream->exceptions(std::ios_base::badbit);
    Bytes raw(30000, '\0');
    stream->read(raw.data(), static_cast<std::streamsize>(raw.size()));
    raw.resize(static_cast<std::size_t>(stream->gcount()));
    client.seen.push_back(raw);
    stream->close();
  }
}

using Saved = std::map<std::string, Bytes>;

Saved with(Saved all, const Saved& more) {
  all.insert(more.begin(), more.end());
  return all;
}

const Saved kTyped = {{"mimetype", "application/x-old"}};
const Saved kKept = {
    {"stored.bin", kStored}, {"deflated.txt", kDeflated}, {"empty", ""}, {"dir/", ""}};
const Saved kAdded = {
    {"new.txt", kNewDeflated}, {"new.bin", kNewStored}, {"new-empty", ""}, {"new-dir/", ""}};
const Saved kInside = {{"direct.txt", kNewDeflated}, {"direct.bin", kNewStored},
                       {"direct-empty", ""},         {"direct-dir/", ""},
                       {"outer.txt", kOldText},      {"queued.txt", kNewDeflated},
                       {"queued-dir/", ""}};

const Bytes kNewProperties =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<pkgProperties xmlns=\"http://ns.quillon.example/qcf/1.0/\">\n"
    "<package/>\n"
    "<entries>\n"
    "<entry path=\"deflated.txt\">\n"
    "<prop key=\"datetime\">today</prop>\n"
    "</entry>\n"
    "<entry path=\"stored.bin\">\n"
    "<prop key=\"mac_type\">TEXT</prop>\n"
    "</entry>\n"
    "</entries>\n"
    "</pkgProperties>\n";

}  // namespace

void WholeDocumentParser::parse(std::istream& document) {
  Bytes text(kProperties.size(), '\0');
  document.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (text != kProperties) throw DocumentCutShort();
  const char* none[] = {nullptr};
  const char* entry[] = {"path", "stored.bin", nullptr};
  const char* prop[] = {"key", "mac_type", nullptr};
  fHandler->startElement("pkgProperties", none);
  fHandler->startElement("entries", none);
  fHandler->startElement("entry", entry);
  fHandler->startElement("prop", prop);
  fHandler->characterData("TEXT", 4);
  for (const char* name : {"prop", "entry", "entries", "pkgProperties"})
    fHandler->endElement(name);
}

void Client::open(std::ios_base::openmode mode, const std::string& name) {
  package = pkg::QCFPackageFactory().openPackage(path(name), mode, &files, &policies,
                                                 usesParser ? &parser : nullptr);
}

void Client::meet(const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    if (name.back() == '/') {
      directories.push_back(package->getDirectory(name, true));
    } else {
      entries.push_back(package->getFile(name, true));
    }
  }
}

void Client::write(const std::string& name, const Bytes& content, pkg::CompressionMethod method) {
  constexpr std::size_t kPiece = 6000;
  const auto file = package->getFile(name, false);
  file->setCompressionMethod(method);
  const Stream stream = file->open(kOut, false);
  stream->exceptions(std::ios_base::badbit);
  for (std::size_t at = 0; at < content.size(); at += kPiece)
    put(stream, std::string_view(content).substr(at, kPiece));
  stream->close();
}

void Client::put(const Stream& stream, std::string_view text) {
  isPutting = true;
  stream->write(text.data(), static_cast<std::streamsize>(text.size()));
  isPutting = false;
}

Bytes Client::read(const std::string& name) {
  const Stream stream = package->getFile(name, true)->open(kIn, false);
  stream->exceptions(std::ios_base::badbit);
  Bytes all;
  char block[3000];
  while (stream->read(block, sizeof block), stream->gcount() > 0)
    all.append(block, static_cast<std::size_t>(stream->gcount()));
  stream->close();
  return all;
}

void Client::drop() {
  streams.clear();
  entries.clear();
  directories.clear();
  package.reset();
}

const std::map<std::string, Bytes>& unchangedEntries() {
  return kKept;
}

const std::vector<Way>& ways() {
  static const std::vector<Way> all = {
      {"SaveAs", oldPackage(), Output::OtherFile, openOld, changeAll, saveAs,
       with(with(kTyped, kKept), with(kAdded, {{"changed.txt", kOldText}}))},
      {"BeginIntoAnotherFileWriteEnd", oldPackage(), Output::OtherFile, openOld, removeOne,
       saveInside, with(with(kTyped, kKept), with(kInside, {{"changed.txt", kOldText}}))},
      {"BeginWriteEndOnANewPackage", "", Output::NewPackage, openNew, nothing, saveNew, kInside},
      {"UnsafeInPlace", oldPackage(), Output::PackageFile, openOld, changeAll, saveInPlace,
       with(with(kTyped, kKept), with(kAdded, {{"changed.txt", kNewText}}))},
      {"CreateConformingPackage", "", Output::NewPackage, nothing, nothing, createConforming,
       with(kInside, {{"mimetype", "application/x-new"}})},
      {"RepairAtOpenAndSaveAs", packageToRepair(), Output::OtherFile, openToRepair, removeOne,
       saveAs, with(kKept, {{"mimetype", "application/x-late"}})},
      {"SpoolAndDrop", oldPackage(), Output::None, openOld, changeAll, nothing, {}},
      {"PropertiesReadAndWritten", packageWithProperties(), Output::OtherFile, openWithProperties,
       readProperties, saveProperties,
       with(with(kTyped, kKept), {{kDocument + 1, kNewProperties}})},
      {"SeekInADeflatedEntry", oldPackage(), Output::None, openReadOnly, readAndSeek, nothing, {}},
      {"BeginInTheOldFileWriteEnd", oldPackage(), Output::PackageFile, openOld, removeOne,
       saveInOldFile, kInside},
      {"BeginWriteCancel", oldPackage(), Output::Abandoned, openOld, removeOne, saveNothing, {}},
      {"SecondUpdate", "", Output::OtherFile, openAfterAnUpdate, removeOne, saveInside,
       with(with(kTyped, kKept), kInside)},
      {"WalkAllEntries", oldPackage(), Output::None, openUnmet, walk, nothing, {}},
      {"AcceptAndReadRaw", oldPackage(), Output::None, openOld, acceptAndReadRaw, nothing, {}},
  };
  return all;
}

}  // namespace failures
