#include "walk/PackageModel.h"

#include <algorithm>

#include <zlib.h>

namespace walk {
namespace {

constexpr int kEntryNotFound = 21;
constexpr int kDirectoryExists = 25;
constexpr int kNotInUpdate = 28;
const std::string kDocument = "META-INF/pkgproperties.xml";

}  // namespace

std::uint64_t deflatedSize(const Bytes& data) {
  z_stream z{};
  deflateInit2(&z, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -15, 9, Z_DEFAULT_STRATEGY);
  Bytes out(deflateBound(&z, data.size()), '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  z.avail_in = static_cast<uInt>(data.size());
  z.next_out = reinterpret_cast<Bytef*>(out.data());
  z.avail_out = static_cast<uInt>(out.size());
  deflate(&z, Z_FINISH);
  const std::uint64_t size = z.total_out;
  deflateEnd(&z);
  return size;
}

Bytes propertiesDocument(const Properties& properties) {
  Bytes text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<pkgProperties xmlns=\"http://ns.quillon.example/qcf/1.0/\">\n<package/>\n<entries>\n";
  for (const auto& [path, value] : properties) {
    text +=
        "<entry path=\"" + path + "\">\n<prop key=\"datetime\">" + value + "</prop>\n</entry>\n";
  }
  return text + "</entries>\n</pkgProperties>\n";
}

Properties parseDocument(const Bytes& document) {
  Properties properties;
  const std::string open = "<entry path=\"", key = "<prop key=\"datetime\">";
  for (std::size_t at = 0; (at = document.find(open, at)) != Bytes::npos;) {
    at += open.size();
    const std::string path = document.substr(at, document.find('"', at) - at);
    at = document.find(key, at) + key.size();
    const std::size_t end = document.find('<', at);
    // A parser that delivers no empty text leaves an empty value out.
    if (end != at) properties[path] = document.substr(at, end - at);
  }
  return properties;
}

std::uint64_t Entry::size() const {
  const RecordPtr& record = write ? write : read;
  return record && record->size != 0 ? record->size : expectedSize;
}

RecordPtr PackageModel::findRecord(const std::vector<RecordPtr>& directory,
                                   const std::string& name) const {
  for (const RecordPtr& record : directory) {
    if (record->name == name) return record;
  }
  return nullptr;
}

int PackageModel::entryExists(const std::string& name) const {
  const auto known = fEntries.find(name);
  if (known != fEntries.end()) {
    if (known->second->deleted) return 0;
    return known->second->isDirectory() ? 2 : 1;
  }
  if (!findRecord(fDirectory, name)) return 0;
  return name.back() == '/' ? 2 : 1;
}

int PackageModel::getFile(const std::string& name, EntryPtr& entry) {
  const auto known = fEntries.find(name);
  if (known != fEntries.end()) {
    entry = known->second;
    return 0;
  }
  entry = std::make_shared<Entry>();
  entry->name = name;
  entry->read = findRecord(fDirectory, name);
  if (entry->read) {
    entry->stored = entry->read->stored;
    entry->expectedSize = entry->read->size;
  }
  fEntries[name] = entry;
  return 0;
}

EntryPtr PackageModel::getDirectory(const std::string& name) {
  const bool isNew = fEntries.count(name) == 0;
  EntryPtr entry;
  getFile(name, entry);
  if (isNew) {
    entry->stored = true;
    entry->unstored = entry->uncreated = !entry->read;
  }
  return entry;
}

// A record makes its directory object without asking whether the package holds it: its flags stay
// clear.
EntryPtr PackageModel::entryOf(const RecordPtr& record) {
  EntryPtr entry;
  getFile(record->name, entry);
  return entry;
}

// The temporary file outranks the package. From the package, the record of the running update says
// how many bytes of the old data are there.
int PackageModel::read(Entry& entry, Bytes& content) {
  if (!entry.read && !entry.spool) return kEntryNotFound;
  if (entry.spool) {
    content = *entry.spool;
    return 0;
  }
  const std::uint64_t limit = (entry.write ? entry.write : entry.read)->compressed;
  if (entry.stored) {
    content = entry.read->data.substr(0, static_cast<std::size_t>(limit));
  } else {
    content = limit >= entry.read->compressed ? entry.read->data : Bytes();
  }
  return 0;
}

void PackageModel::seekInside(Entry& entry) {
  if (entry.stored || entry.spool) return;
  Bytes content;
  if (read(entry, content) == 0) entry.spool = content;
}

void PackageModel::markChanged(const EntryPtr& entry) {
  const auto list = [&](std::list<EntryPtr>& entries) {
    if (std::find(entries.begin(), entries.end(), entry) == entries.end()) entries.push_back(entry);
  };
  if (!fInUpdate) {
    const bool first = !entry->modified;
    fModified = entry->modified = true;
    if (first) list(fChanged);
  } else if (!entry->modified || !entry->queued) {
    entry->queued = true;
    list(fQueue);
  }
}

void PackageModel::leaveQueue(const EntryPtr& entry) {
  if (entry->queued) fQueue.remove(entry);
}

void PackageModel::eraseRecord(const std::string& name) {
  std::vector<RecordPtr>& directory = fInUpdate ? fOutput : fDirectory;
  const RecordPtr record = findRecord(directory, name);
  if (record) directory.erase(std::find(directory.begin(), directory.end(), record));
  const auto known = fEntries.find(name);
  if (known != fEntries.end()) (fInUpdate ? known->second->write : known->second->read).reset();
}

void PackageModel::createRecord(const EntryPtr& entry, bool copy) {
  if (entry->write) eraseRecord(entry->name);
  const auto record =
      copy && entry->read ? std::make_shared<Record>(*entry->read) : std::make_shared<Record>();
  if (!copy || !entry->read) {
    record->name = entry->name;
    record->stored = entry->stored;
    record->size = record->compressed = entry->expectedSize;
  }
  fOutput.push_back(record);
  fOutputSize += 46 + entry->name.size();
  entry->write = record;
}

StreamPtr PackageModel::openForWriting(const EntryPtr& entry, bool raw) {
  if (!entry->read || entry->deleted) entry->deleted = false;
  const auto stream = std::make_shared<Stream>();
  stream->entry = entry;
  if (fInUpdate && !fWriter) {
    leaveQueue(entry);
    createRecord(entry, raw);
    stream->record = entry->write;
    stream->stored = entry->stored;
    stream->raw = raw;
    fWriter = entry;
    fOutputWritten = true;
  } else {
    markChanged(entry);
    entry->spool = Bytes();
  }
  entry->hasStream = true;
  fStreams.push_back(stream);
  return stream;
}

bool PackageModel::write(Stream& stream, const Bytes& data) {
  const EntryPtr entry = stream.entry.lock();
  if (!entry || (stream.record && entry->write != stream.record)) return data.empty();
  const std::size_t overwritten = std::min(data.size(), stream.written.size() - stream.position);
  stream.written.replace(stream.position, overwritten, data);
  stream.position += data.size();
  if (!stream.record) entry->spool = stream.written;
  return true;
}

void PackageModel::close(Stream& stream) {
  if (!stream.isOpen) return;
  stream.isOpen = false;
  const EntryPtr entry = stream.entry.lock();
  if (!entry) return;
  entry->hasStream = false;
  if (!stream.record) {
    entry->expectedSize = stream.written.size();
  } else if (entry->write == stream.record) {
    Record& record = *stream.record;
    const std::uint64_t size = stream.raw && !stream.stored && !stream.written.empty()
                                   ? entry->expectedSize
                                   : stream.written.size();
    if (!stream.raw) record.compressed = stream.stored ? size : deflatedSize(stream.written);
    record.data = stream.written;
    record.size = size;
    if (size == 0) {
      record.stored = true;
      record.compressed = 0;
      record.data.clear();
    }
  }
  const bool givenUp = stream.record && entry->write != stream.record;
  if (entry->write && !givenUp) fWriter.reset();
}

void PackageModel::remove(const EntryPtr& entry) {
  eraseRecord(entry->name);
  entry->modified = false;
  entry->deleted = true;
  if (entry->isDirectory()) return;
  for (const RecordPtr& record : {entry->write, entry->read}) {
    if (record) record->size = 0;
  }
  entry->expectedSize = 0;
}

int PackageModel::createDirectory(const std::string& name) {
  const EntryPtr entry = getDirectory(name);
  if (!entry->deleted && !(entry->unstored && entry->uncreated)) return kDirectoryExists;
  entry->uncreated = entry->deleted = false;
  if (fInUpdate && !fWriter) {
    leaveQueue(entry);
    writeDirectoryEntry(entry);
  } else {
    markChanged(entry);
  }
  return 0;
}

void PackageModel::writeDirectoryEntry(const EntryPtr& entry) {
  createRecord(entry, !entry->unstored);
  entry->write->stored = true;
  entry->write->size = entry->write->compressed = 0;
  fOutputWritten = true;
}

// Carries an entry into the output. What is modified or was queued is compressed again, from the
// temporary file or from the old data; the temporary file is used up.
void PackageModel::writeEntry(const EntryPtr& entry) {
  if (entry->isDirectory()) {
    writeDirectoryEntry(entry);
    return;
  }
  const bool raw = !entry->modified && !entry->queued;
  const StreamPtr out = openForWriting(entry, raw);
  Bytes content;
  if (raw && entry->read) {
    content = entry->read->data;
  } else {
    read(*entry, content);
  }
  write(*out, content);
  entry->spool.reset();
  entry->queued = false;
  close(*out);
}

int PackageModel::readProperties() {
  if (fLoaded || entryExists(kDocument) == 0) return 0;
  EntryPtr document;
  getFile(kDocument, document);
  Bytes content;
  const int code = read(*document, content);
  if (code != 0) return code;
  for (const auto& [path, value] : parseDocument(content))
    fProperties[path] = value;
  fLoaded = true;
  return 0;
}

int PackageModel::setDateTime(const std::string& path, const std::string& value) {
  if (!fManagerInUpdate) return kNotInUpdate;
  const int code = readProperties();
  if (code == 0) fProperties[path] = value;
  return code;
}

int PackageModel::writeProperties() {
  EntryPtr document;
  if (fProperties.empty()) {
    if (entryExists(kDocument) != 0) {
      getFile(kDocument, document);
      remove(document);
    }
    return 0;
  }
  getFile(kDocument, document);
  const StreamPtr out = openForWriting(document);
  write(*out, propertiesDocument(fProperties));
  close(*out);
  return 0;
}

}  // namespace walk
