// Random sequences of operations on a package, the library held against PackageModel after every
// step and python3's zipfile against it after every save. QCF_WALK_SEQUENCES sets how many (2,000
// unless set), QCF_WALK_SEED where they begin. A mismatch is shrunk to a short sequence and
// printed.

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include <gtest/gtest.h>

#include "package/QCFPackage.h"

#include "support/TempDir.h"
#include "walk/LineParser.h"
#include "walk/PackageModel.h"
#include "walk/Sequence.h"
#include "walk/ZipfileReader.h"

namespace walk {
namespace {

using pkg::PackageException;

const char* const kFiles[] = {"mimetype", "a", "b", "d/c"};
const char* const kDirectories[] = {"d/", "e/"};

// Runs one sequence on both; keeps the first difference.
class Walk {
public:
  explicit Walk(const std::string& directory) : fDirectory(directory), fModel(nextName()) {
    openPackage(std::ios::in | std::ios::out | std::ios::trunc);
  }

  std::string run(const Sequence& sequence) {
    for (std::size_t i = 0; i < sequence.size() && fDifference.empty(); ++i) {
      const auto savesBefore = fSaves;
      step(sequence[i]);
      compareState();
      if (fDifference.empty() && fSaves != savesBefore) compareFile();
    }
    return fDifference;
  }

private:
  struct OpenStream {
    boost::shared_ptr<pkg::IPkgStream<>> real;
    StreamPtr model;
  };

  std::string nextName() { return fDirectory + "/" + std::to_string(fNames++ % 8) + ".zip"; }

  void openPackage(std::ios::openmode mode) {
    fPackage = pkg::zip::ZipPackageFactory<>::getInstance()->openPackage(
        fModel.fileName(), mode, nullptr, nullptr, &fParser);
  }

  void differ(const std::string& what, const std::string& expected, const std::string& found) {
    if (fDifference.empty()) {
      fDifference = what + ": expected " + std::to_string(expected.size()) + " " +
                    expected.substr(0, 300) + ", found " + std::to_string(found.size()) + " " +
                    found.substr(0, 300);
    }
  }
  void compare(const std::string& what, long long expected, long long found) {
    if (expected != found) differ(what, std::to_string(expected), std::to_string(found));
  }

  // The code that `action` raises, 0 for none.
  template <class Action>
  int codeOf(Action action) {
    try {
      action();
      return 0;
    } catch (PackageException<>& e) {
      return e.getErrorCode();
    }
  }

  void closeStream(OpenStream& stream) {
    compare("close", 0, codeOf([&] { stream.real->close(); }));
    fModel.close(*stream.model);
  }
  // A spool must be closed before the entry is carried into the output.
  void closeSpools() {
    for (OpenStream& stream : fStreams) {
      if (!stream.model->record) closeStream(stream);
    }
    dropClosed();
  }
  void dropClosed() {
    fStreams.erase(std::remove_if(fStreams.begin(), fStreams.end(),
                                  [](const OpenStream& s) { return !s.model->isOpen; }),
                   fStreams.end());
  }

  void step(const Step& step) {
    switch (step.operation) {
      case Open:
        return open(step);
      case Write:
        return write(step);
      case Seek:
        return seek(step);
      case Close:
        return close(step);
      case Remove:
        return remove(step);
      case CreateDirectory:
        return createDirectory(step);
      case SetDateTime:
        return setDateTime(step);
      case SetComment:
        return setComment(step);
      case Reopen:
        return reopen();
      case ReadSeeking:
        return readSeeking(step);
      default:
        return transact(step.operation);
    }
  }

  static Bytes text(unsigned seed) {
    const std::size_t length = seed % 7 == 0 ? 0 : seed * 37 % 1500 + 1;
    Bytes bytes;
    for (std::size_t i = 0; i < length; ++i)
      bytes += static_cast<char>('a' + (i * seed / 5 + i) % 23);
    return bytes;
  }

  void open(const Step& step) {
    const std::string name = kFiles[step.a % 4];
    if (fModel.hasLostEntry(name)) return;
    const auto file = fPackage->getFile(name, false);
    EntryPtr entry;
    fModel.getFile(name, entry);
    // Left out: a second stream on an entry, and a spool of an entry that this update has written,
    // while another writes: closing that one would free the output in the middle of the other's
    // data.
    if (entry->hasStream) return;
    if (entry->write && fModel.hasWriter()) return;
    if (!entry->read && !entry->write) {
      file->setCompressionMethod(step.b % 2 ? pkg::CompressionStored : pkg::CompressionDeflated);
      entry->stored = step.b % 2 != 0;
    }
    OpenStream stream;
    compare("open", 0, codeOf([&] { stream.real = file->open(std::ios::out, false); }));
    if (!stream.real) return;
    stream.model = fModel.openForWriting(entry);
    fStreams.push_back(stream);
    // The first byte follows at once, or none: until then nothing else may move the output file.
    const Bytes data = text(step.b);
    writeTo(fStreams.back(), data);
    if (data.empty()) closeStream(fStreams.back());
    dropClosed();
  }

  void writeTo(OpenStream& stream, const Bytes& data) {
    stream.real->write(data.data(), static_cast<std::streamsize>(data.size()));
    const bool accepted = fModel.write(*stream.model, data);
    compare("write accepted", accepted, !stream.real->fail());
  }

  void write(const Step& step) {
    if (fStreams.empty()) return;
    OpenStream& stream = fStreams[step.a % fStreams.size()];
    if (!stream.real->fail()) writeTo(stream, text(step.b));
  }

  // Left out: moving a direct stream. A deflated one cannot, and a stored one's CRC counts what was
  // overwritten.
  void seek(const Step& step) {
    if (fStreams.empty()) return;
    OpenStream& stream = fStreams[step.a % fStreams.size()];
    if (stream.model->record || stream.model->entry.expired()) return;
    stream.model->position = step.b % (stream.model->written.size() + 1);
    stream.real->seekp(static_cast<std::streamoff>(stream.model->position));
    compare("tellp", static_cast<long long>(stream.model->position),
            static_cast<long long>(stream.real->tellp()));
  }

  void close(const Step& step) {
    if (fStreams.empty()) return;
    closeStream(fStreams[step.a % fStreams.size()]);
    dropClosed();
  }

  void remove(const Step& step) {
    if (step.a % 5 == 4) {
      const std::string name = kDirectories[step.b % 2];
      if (fModel.hasLostEntry(name)) return;
      fPackage->getDirectory(name, false)->remove();
      fModel.remove(fModel.getDirectory(name));
      return;
    }
    const std::string name = kFiles[step.a % 5];
    if (fModel.hasLostEntry(name)) return;
    EntryPtr entry;
    fModel.getFile(name, entry);
    fPackage->getFile(name, false)->remove();
    fModel.remove(entry);
  }

  void createDirectory(const Step& step) {
    const std::string name = kDirectories[step.a % 2];
    if (fModel.hasLostEntry(name)) return;
    const int code = codeOf([&] { fPackage->getDirectory(name, false)->create(); });
    compare("create", fModel.createDirectory(name), code);
  }

  void setDateTime(const Step& step) {
    const std::string name = kFiles[step.a % 4];
    if (fModel.hasLostEntry(name)) return;
    const std::string value = std::to_string(step.b);
    EntryPtr entry;
    fModel.getFile(name, entry);
    const auto file = fPackage->getFile(name, false);
    const int code = codeOf([&] { file->setProperty(pkg::QCFPropertyDateTime, value); });
    compare("set datetime", fModel.setDateTime(name, value), code);
  }

  void setComment(const Step& step) {
    const std::string comment(step.b % 20, 'k');
    fPackage->setProperty(pkg::QCFPropertyPackageComment, comment);
    fModel.setComment(comment);
  }

  void transact(Operation operation) {
    constexpr auto kReadWrite = std::ios::in | std::ios::out | std::ios::trunc;
    closeSpools();
    if (fModel.wouldReadBeyondOldData() || fModel.wouldCopyWhatIsNotThere()) return;
    const bool intoItself = operation == Begin || operation == InPlace || operation == End;
    if (intoItself && fModel.wouldReadItsOwnOutput(operation == InPlace)) return;
    if (operation == End && fModel.wouldForgetWriter()) return;
    if (operation == Cancel && fModel.wouldKeepClearedRecord()) return;
    const bool wasUpdating = fModel.inUpdate();
    if (operation == InPlace && wasUpdating) return;  // overruns the update: nobody checks
    const bool namesFile = operation == BeginOther || operation == SaveAs;
    const std::string name = namesFile && !wasUpdating ? freshName() : fModel.fileName();
    int expected = 0, found = 0;
    switch (operation) {
      case Begin:
        found = codeOf([&] { fPackage->beginUpdate(); });
        expected = fModel.begin();
        break;
      case BeginOther:
        found = codeOf([&] { fPackage->beginUpdate(name, kReadWrite); });
        expected = fModel.begin(name);
        break;
      case End:
        found = codeOf([&] { fPackage->endUpdate(); });
        expected = fModel.end();
        break;
      case Cancel:
        found = codeOf([&] { fPackage->cancelUpdate(); });
        expected = fModel.cancel();
        break;
      case SaveAs:
        found = codeOf([&] { fPackage->saveAs(name, kReadWrite); });
        expected = fModel.saveAs(name);
        break;
      default:
        found = codeOf([&] { fPackage->doUNSAFEUpdateInPlace(); });
        fModel.inPlace();
    }
    compare(nameOf(operation), expected, found);
    dropClosed();
    if (fModel.saveCount() != fSaves) fSaves = fModel.saveCount();
  }

  // Not the file that the package lives in.
  std::string freshName() {
    std::string name = nextName();
    return name == fModel.fileName() ? nextName() : name;
  }

  static bool beginsWithAnEntry(const std::string& name) {
    return support::readFile(name).compare(0, 4, "PK\3\4") == 0;
  }

  void reopen() {
    if (!fModel.everSaved() || fModel.inUpdate()) return;
    fPackage->getFSFile()->flush();
    if (!beginsWithAnEntry(fModel.fileName())) {
      // The first save of all had nothing to list: what begins with a directory is no package.
      pkg::QCFPackageFactory factory;
      compare("accept", 0, factory.acceptPackage(fModel.fileName(), nullptr, nullptr, nullptr));
      return;
    }
    fPackage->close();
    fStreams.clear();
    fModel.reopen();
    openPackage(std::ios::in | std::ios::out);
  }

  void readSeeking(const Step& step) {
    const std::string name = kFiles[step.a % 4];
    if (fModel.entryExists(name) != 1) return;
    EntryPtr entry;
    fModel.getFile(name, entry);
    if (entry->hasStream || entry->write || (!entry->read && !entry->spool)) return;
    Bytes expected;
    fModel.read(*entry, expected);
    if (expected.empty()) return;
    fModel.seekInside(*entry);
    const auto stream = fPackage->getFile(name, false)->open(std::ios::in, false);
    const std::size_t target = step.b % (expected.size() + 1);
    stream->seekg(static_cast<std::streamoff>(target) + 1);
    stream->seekg(static_cast<std::streamoff>(target));
    const Bytes found((std::istreambuf_iterator<char>(*stream)), std::istreambuf_iterator<char>());
    if (found != expected.substr(target)) differ("seek in " + name, expected.substr(target), found);
  }

  void compareState() {
    compare("modified", fModel.isModified(), fPackage->isModified());
    for (const char* const name : kDirectories) {
      compare(std::string("exists ") + name, fModel.entryExists(name), fPackage->entryExists(name));
    }
    for (const char* const name : kFiles) {
      compare(std::string("exists ") + name, fModel.entryExists(name), fPackage->entryExists(name));
      if (fModel.entryExists(name) == 1) compareFileEntry(name);
    }
  }

  void compareFileEntry(const std::string& name) {
    EntryPtr entry;
    fModel.getFile(name, entry);
    const auto file = fPackage->getFile(name, false);
    compare(name + " modified", entry->modified, file->isModified());
    compare(name + " size", static_cast<long long>(entry->size()), file->getSize64());
    if (entry->hasStream) return;
    Bytes expected;
    const int code = fModel.read(*entry, expected);
    const bool overrun = !entry->spool && entry->write && entry->read && entry->stored &&
                         entry->write->compressed > entry->read->data.size();
    if (overrun) return;
    boost::shared_ptr<pkg::IPkgStream<>> stream;
    compare(name + " open", code, codeOf([&] { stream = file->open(std::ios::in, false); }));
    if (!stream) return;
    Bytes found(16384, '\0');
    stream->read(found.data(), static_cast<std::streamsize>(found.size()));
    found.resize(static_cast<std::size_t>(stream->gcount()));
    if (found != expected) differ(name + " content", expected, found);
  }

  void compareFile() {
    static ZipfileReader reader;
    fPackage->getFSFile()->flush();
    const std::string found = reader.describe(fModel.fileName());
    const std::string expected = describe(fModel.saved());
    if (found != expected) differ("file", expected, found);
  }

  std::string fDirectory;
  unsigned fNames = 0;
  PackageModel fModel;
  LineParser fParser;
  boost::shared_ptr<pkg::IPackage<>> fPackage;
  std::vector<OpenStream> fStreams;
  unsigned fSaves = 0;
  std::string fDifference;
};

// Takes steps away for as long as a difference stays.
Sequence shrunk(Sequence sequence, const std::string& directory) {
  for (bool smaller = true; smaller;) {
    smaller = false;
    for (std::size_t i = sequence.size(); i-- > 0;) {
      Sequence candidate = sequence;
      candidate.erase(candidate.begin() + static_cast<std::ptrdiff_t>(i));
      if (Walk(directory).run(candidate).empty()) continue;
      sequence = candidate;
      smaller = true;
    }
  }
  return sequence;
}

unsigned numberFrom(const char* variable, unsigned otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

TEST(RandomWalk, EveryStepLeavesWhatTheModelSays) {
  const support::TempDir directory;
  const std::string path = directory.path().string();
  const unsigned first = numberFrom("QCF_WALK_SEED", 1);
  const unsigned count = numberFrom("QCF_WALK_SEQUENCES", 2000);
  std::size_t operations = 0;
  for (unsigned seed = first; seed < first + count; ++seed) {
    const Sequence sequence = randomSequence(seed);
    operations += sequence.size();
    const std::string difference = Walk(path).run(sequence);
    if (difference.empty()) continue;
    const Sequence shortest = shrunk(sequence, path);
    FAIL() << "seed " << seed << ": " << Walk(path).run(shortest) << toText(shortest);
  }
  std::cout << "random sequences: " << count << ", of " << operations << " operations\n";
}

}  // namespace
}  // namespace walk
