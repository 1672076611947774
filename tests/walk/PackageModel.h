#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// What a package does, told without bytes on disk: entries with contents, the two lists of changes,
// the directory that stands and the one that is being built. Small enough to read, and kept apart
// from the library: the random walk holds the library against it. Results are the library's error
// codes, 0 for done.

namespace walk {

using Bytes = std::string;

struct Record {
  std::string name;
  bool stored = true;
  Bytes data;                    // as the file holds it, inflated
  std::uint64_t size = 0;        // as the record says
  std::uint64_t compressed = 0;  // as the record says
};
using RecordPtr = std::shared_ptr<Record>;

struct Entry {
  std::string name;
  RecordPtr read;              // as the package stands
  RecordPtr write;             // of the running update
  std::optional<Bytes> spool;  // the temporary file
  std::uint64_t expectedSize = 0;
  bool stored = false;  // the method of the next stream
  bool modified = false, queued = false, deleted = false;
  bool unstored = false, uncreated = false;  // of a directory
  bool hasStream = false;

  bool isDirectory() const { return name.back() == '/'; }
  std::uint64_t size() const;
};
using EntryPtr = std::shared_ptr<Entry>;

struct Stream {
  std::weak_ptr<Entry> entry;
  RecordPtr record;  // of a direct stream
  Bytes written;
  std::size_t position = 0;
  bool stored = false;
  bool raw = false;
  bool isOpen = true;
};
using StreamPtr = std::shared_ptr<Stream>;

using Properties = std::map<std::string, std::string>;  // path to datetime

// The bytes of deflate with the library's parameters; their number is what counts.
std::uint64_t deflatedSize(const Bytes& data);
Bytes propertiesDocument(const Properties& properties);
Properties parseDocument(const Bytes& document);

class PackageModel {
public:
  // What an independent reader finds in a saved file.
  struct Saved {
    std::vector<Record> records;
    std::uint64_t directorySize = 0;  // as the end record says: what is dropped later stays counted
    std::string comment;
  };

  explicit PackageModel(std::string fileName) : fFileName(std::move(fileName)) {}

  // Lookup.
  int entryExists(const std::string& name) const;
  int getFile(const std::string& name, EntryPtr& entry);
  EntryPtr getDirectory(const std::string& name);
  // The content that a stream on the entry would deliver; a code where there is none.
  int read(Entry& entry, Bytes& content);
  // A seek in a deflated entry leaves a copy behind.
  void seekInside(Entry& entry);

  // Change.
  StreamPtr openForWriting(const EntryPtr& entry, bool raw = false);
  // False where the stream's update has been given up.
  bool write(Stream& stream, const Bytes& data);
  void close(Stream& stream);
  void remove(const EntryPtr& entry);
  int createDirectory(const std::string& name);
  int setDateTime(const std::string& path, const std::string& value);
  void setComment(const std::string& comment) { fComment = comment; }

  // Transactions.
  int begin();
  int begin(const std::string& fileName);
  int end();
  int cancel();
  int saveAs(const std::string& fileName);
  void inPlace();
  // Closes the package and opens the file that it lives in again.
  void reopen();

  // A second writing from old data would run on behind them: what it finds there is not told here.
  bool wouldReadBeyondOldData() const;
  // Copying old data within one file reads before the copy's first byte goes out, and its local
  // header then lands where the reading stopped.
  bool wouldReadItsOwnOutput(bool inPlace) const;
  // Closing a spool of an entry that the update has written already frees the output, whoever
  // writes: an open direct stream is forgotten, its record unfinished. The properties document does
  // it when it is an old entry.
  bool wouldForgetWriter() const;
  // Removing an entry inside an update clears CRC and size of its old record at once, and giving
  // the update up does not bring them back: revived meanwhile, it would be copied with them.
  bool wouldKeepClearedRecord() const;
  // An entry that counts as unchanged is copied raw, and so from the package: one that has only a
  // temporary file, removed and revived in an update that was given up, is not there.
  bool wouldCopyWhatIsNotThere() const;
  // A cancelled update leaves new entries in the list of changes that their paths no longer lead
  // to: what the path leads to next is another object of the same name.
  bool hasLostEntry(const std::string& name) const;
  bool isModified() const { return fModified; }
  bool inUpdate() const { return fInUpdate; }
  bool updatesOtherFile() const { return fSaveAs; }
  bool hasWriter() const { return fWriter != nullptr; }
  bool isWriter(const EntryPtr& entry) const { return fWriter == entry; }
  const std::string& fileName() const { return fFileName; }
  const Saved& saved() const { return fSaved; }
  bool everSaved() const { return fEverSaved; }
  unsigned saveCount() const { return fSaves; }

private:
  RecordPtr findRecord(const std::vector<RecordPtr>& directory, const std::string& name) const;
  void eraseRecord(const std::string& name);
  EntryPtr entryOf(const RecordPtr& record);
  void markChanged(const EntryPtr& entry);
  void leaveQueue(const EntryPtr& entry);
  void createRecord(const EntryPtr& entry, bool copy);
  void writeEntry(const EntryPtr& entry);
  void writeDirectoryEntry(const EntryPtr& entry);
  void startUpdate();
  void writeOldAndChanged();
  int writeProperties();
  int readProperties();
  void adoptOutput();

  std::string fFileName, fTargetName;
  std::map<std::string, EntryPtr> fEntries;
  std::list<EntryPtr> fChanged, fQueue;
  std::vector<RecordPtr> fDirectory, fOutput;
  std::uint64_t fOutputSize = 0;
  EntryPtr fWriter;
  std::vector<StreamPtr> fStreams;
  bool fModified = false, fInUpdate = false, fSaveAs = false, fOutputWritten = false;
  Properties fProperties, fSavedProperties;
  std::string fComment, fSavedComment;
  bool fLoaded = false, fManagerInUpdate = false;
  Saved fSaved;
  bool fEverSaved = false;
  unsigned fSaves = 0;
};

}  // namespace walk
