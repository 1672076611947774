// What updates do to the model.

#include <algorithm>

#include "walk/PackageModel.h"

namespace walk {
namespace {

constexpr int kUpdateInProgress = 35;
constexpr int kUpdateNotInProgress = 37;
const std::string kDocument = "META-INF/pkgproperties.xml";

}  // namespace

void PackageModel::startUpdate() {
  for (const auto& [name, entry] : fEntries)
    entry->write.reset();
  fOutput.clear();
  fOutputSize = 0;
  fInUpdate = true;
  fWriter.reset();
  fOutputWritten = false;
}

void PackageModel::writeOldAndChanged() {
  const bool modified = fModified;
  for (const RecordPtr& record : fDirectory) {
    const EntryPtr entry = entryOf(record);
    if (!entry->deleted && (fSaveAs || entry->modified)) writeEntry(entry);
  }
  fModified = modified;
  for (const EntryPtr& entry : fChanged) {
    if (!entry->deleted) writeEntry(entry);
  }
  fSavedProperties = fProperties;
  fSavedComment = fComment;
  fManagerInUpdate = true;
}

int PackageModel::begin() {
  if (fInUpdate) return kUpdateInProgress;
  fTargetName = fFileName;
  startUpdate();
  writeOldAndChanged();
  return 0;
}

int PackageModel::begin(const std::string& fileName) {
  if (fInUpdate) return kUpdateInProgress;
  fTargetName = fileName;
  fSaveAs = true;
  startUpdate();
  writeOldAndChanged();
  return 0;
}

void PackageModel::inPlace() {
  fTargetName = fFileName;
  startUpdate();
  fOutputWritten = true;
  for (const RecordPtr& record : fDirectory) {
    const EntryPtr entry = entryOf(record);
    if (entry->deleted || entry->modified || entry->write) continue;
    entry->write = std::make_shared<Record>(*record);
    fOutput.push_back(entry->write);
    fOutputSize += 46 + record->name.size();
  }
  for (const EntryPtr& entry : fChanged) {
    if (!entry->deleted) writeEntry(entry);
  }
  fSavedProperties = fProperties;
  fSavedComment = fComment;
  fManagerInUpdate = true;
  end();
}

int PackageModel::end() {
  if (!fInUpdate) return kUpdateNotInProgress;
  if (fManagerInUpdate) writeProperties();
  fManagerInUpdate = false;
  if (fWriter) {
    const EntryPtr writer = fWriter;
    for (const StreamPtr& stream : fStreams) {
      if (stream->entry.lock() == writer) close(*stream);
    }
    writer->spool.reset();
  }
  const std::list<EntryPtr> queue = fQueue;
  for (const EntryPtr& entry : queue) {
    if (!entry->deleted) writeEntry(entry);
  }
  fInUpdate = false;
  if (fOutputWritten) adoptOutput();
  fSaveAs = false;
  return 0;
}

void PackageModel::adoptOutput() {
  fModified = false;
  fFileName = fTargetName;
  fDirectory = fOutput;
  fChanged.clear();
  fQueue.clear();
  for (auto node = fEntries.begin(); node != fEntries.end();) {
    Entry& entry = *node->second;
    if (entry.deleted) {
      node = fEntries.erase(node);
      continue;
    }
    entry.read = entry.write;
    entry.write.reset();
    if (entry.isDirectory()) {
      entry.unstored = entry.uncreated;
    } else {
      entry.modified = false;
      if (entry.read) entry.expectedSize = entry.read->size;
    }
    ++node;
  }
  fSaved = Saved();
  for (const RecordPtr& record : fDirectory)
    fSaved.records.push_back(*record);
  fSaved.directorySize = fOutputSize;
  fSaved.comment = fComment;
  fEverSaved = true;
  ++fSaves;
}

int PackageModel::cancel() {
  if (!fInUpdate) return kUpdateNotInProgress;
  fSaveAs = fInUpdate = false;
  for (const EntryPtr& entry : fQueue) {
    entry->write.reset();
    fEntries.erase(entry->name);
  }
  for (auto node = fEntries.begin(); node != fEntries.end();) {
    Entry& entry = *node->second;
    const bool madeInUpdate = entry.write && !entry.read;
    entry.write.reset();
    node = madeInUpdate ? fEntries.erase(node) : std::next(node);
  }
  fQueue.clear();
  fProperties = fSavedProperties;
  fComment = fSavedComment;
  fManagerInUpdate = false;
  return 0;
}

int PackageModel::saveAs(const std::string& fileName) {
  const int code = begin(fileName);
  return code == 0 ? end() : code;
}

void PackageModel::reopen() {
  const Saved saved = fSaved;
  const unsigned saves = fSaves;
  *this = PackageModel(fFileName);
  fSaved = saved;
  fSaves = saves;
  fEverSaved = true;
  for (const Record& record : saved.records)
    fDirectory.push_back(std::make_shared<Record>(record));
  fComment = saved.comment;
}

bool PackageModel::wouldReadItsOwnOutput(bool inPlace) const {
  // In place, the temporary file serves the only writing; elsewhere the second finds it used up.
  const auto readsOldData = [&](const EntryPtr& entry) {
    return entry->read && !entry->deleted && !entry->isDirectory() && !(inPlace && entry->spool);
  };
  if (!fInUpdate) return std::any_of(fChanged.begin(), fChanged.end(), readsOldData);
  const bool writerWaits = std::find(fQueue.begin(), fQueue.end(), fWriter) != fQueue.end();
  return !fSaveAs && fWriter && writerWaits && readsOldData(fWriter);
}

bool PackageModel::hasLostEntry(const std::string& name) const {
  const auto known = fEntries.find(name);
  return std::any_of(fChanged.begin(), fChanged.end(), [&](const EntryPtr& entry) {
    return entry->name == name && (known == fEntries.end() || known->second != entry);
  });
}

bool PackageModel::wouldCopyWhatIsNotThere() const {
  return std::any_of(fChanged.begin(), fChanged.end(), [](const EntryPtr& entry) {
    return !entry->deleted && !entry->modified && !entry->queued && !entry->read && entry->spool;
  });
}

bool PackageModel::wouldKeepClearedRecord() const {
  return std::any_of(fDirectory.begin(), fDirectory.end(), [&](const RecordPtr& record) {
    if (record->size != 0 || record->data.empty()) return false;
    const auto known = fEntries.find(record->name);
    const bool forgotten = known == fEntries.end() ||
                           std::find(fQueue.begin(), fQueue.end(), known->second) != fQueue.end();
    return forgotten || !known->second->deleted;
  });
}

bool PackageModel::wouldForgetWriter() const {
  const auto document = fEntries.find(kDocument);
  return fWriter && !fProperties.empty() && document != fEntries.end() && document->second->write;
}

bool PackageModel::wouldReadBeyondOldData() const {
  const auto beyond = [](const EntryPtr& entry) {
    return entry->read && entry->stored && !entry->deleted && entry->spool &&
           entry->spool->size() > entry->read->data.size();
  };
  return std::any_of(fChanged.begin(), fChanged.end(), beyond) ||
         std::any_of(fQueue.begin(), fQueue.end(), beyond);
}

}  // namespace walk
