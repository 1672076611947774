#include <cerrno>
#include <cstring>

#include "unit/errors/Roads.h"
#include "unit/package/detail/FakeParser.h"
#include "unit/reading/Reading.h"

using namespace reading;
using support::Failure;
using zipbytes::storedEntry;

namespace {

constexpr std::uint64_t kMarker = ~std::uint64_t{0};

// One stored file "a", its record changed.
template <class Change>
std::string withRecord(Change&& change) {
  zipbytes::Entry central = storedEntry("a", "x");
  change(central);
  zipbytes::File file;
  return file.raw(localHeader(storedEntry("a", "x")) + "x").list(central).bytes();
}

// A package whose only record stands behind the end record, which the scan finds all the same, and
// ends with the file after `keep` bytes.
std::string cutInDirectory(const zipbytes::Entry& record, std::size_t keep) {
  const std::string local = localHeader(storedEntry("a", "x")) + "x";
  zipbytes::End end;
  end.entries = 1;
  end.directoryOffset = static_cast<std::uint32_t>(local.size() + 22);
  return local + endRecord(end) + centralHeader(record).substr(0, keep);
}

void open(const std::string& bytes, const pkg::IPkgPolicies* policies = nullptr) {
  MemoryPackage(bytes, policies);
}

// Opens a package whose n-th call of a kind goes wrong.
void openFailing(const std::string& bytes, int n, const support::Failures& failures) {
  support::MemoryFileSystem memory;
  memory.put("x", bytes);
  support::FailingFileSystem files(memory, n, failures);
  pkg::QCFPackageFactory().openPackage("x", kIn, &files, nullptr, nullptr);
}

void openUnseekable(const std::string& bytes) {
  support::MemoryFileSystem memory;
  memory.put("x", bytes);
  support::UnseekableFileSystem files(memory, true);
  pkg::QCFPackageFactory().openPackage("x", kIn, &files, nullptr, nullptr);
}

// The Zip64 end records, which the numbers of an end record never lead to.
void readZip64(const std::string& bytes, int shortRead = 0, bool seekable = true) {
  support::MemoryFileSystem memory;
  memory.put("x", bytes);
  support::UnseekableFileSystem unseekable(memory, true);
  support::FailingFileSystem files(memory, shortRead, {Failure::ShortRead});
  pkg::IPkgFileSystem<>& system =
      seekable ? static_cast<pkg::IPkgFileSystem<>&>(files) : unseekable;
  const auto file = system.openFile(system.getFSFileName("x"), kIn);
  pkg::zip::ZpCentralDir<> directory;
  directory.fEntryCount = kMarker;
  directory.readZip64Data(file.get());
}

void readEntries(std::uint64_t count) {
  const MemoryPackage package(packageOf({"a"}));
  pkg::zip::ZpCentralDir<> directory;
  directory.fEntryCount = count;
  directory.readCDEntries(package->getFSFile().get(),
                          dynamic_cast<pkg::zip::ZipPackage<>*>(&*package));
}

std::string zip64(std::uint32_t locator, std::uint32_t record, std::uint64_t offset = 0) {
  zipbytes::Zip64End end;
  end.signature = record;
  return zip64EndRecord(end) + zipbytes::zip64Locator(offset, 1, locator) + zipbytes::endRecord({});
}

std::string brokenDeflate() {
  zipbytes::Entry entry = storedEntry("a", "\xFF\xFF");
  entry.method = 8;
  zipbytes::File file;
  return file.add(entry, "\xFF\xFF").bytes();
}

// Seeks in a deflated file, in a package whose n-th call of a kind goes wrong.
void seekFailing(Failure failure) {
  support::MemoryFileSystem memory;
  zipbytes::File file;
  memory.put("x", addDeflated(file, "a", "0123456789").bytes());
  support::FailingFileSystem files(memory, 1, {failure});
  const Package package = pkg::QCFPackageFactory().openPackage("x", kIn, &files, nullptr, nullptr);
  package->getFile("a", true)->open(kIn, false)->rdbuf()->pubseekpos(5, kIn);
}

// Cannot make temporary files, as one without a directory for them.
class NoTemporaries : public support::FileSystemWrapper {
public:
  using FileSystemWrapper::FileSystemWrapper;
  File createTempFile() override {
    throw pkg::PackageIOException<>(pkg::PkgLib_Err_CreatingTempFile);
  }
};

const std::string kGood = packageOf({"mimetype", "a", "d/"});

}  // namespace

namespace errors {

std::vector<Road> directoryRoads() {
  return {
      {2,
       true,
       {},
       "a record that the file cuts short",
       [] { open(cutInDirectory(storedEntry("a", "x"), 45)); }},
      {2,
       true,
       {},
       "a local header that the file cuts short",
       [] {
         MemoryPackage(withRecord([](auto& e) { e.offset = 0x7FFFFFFF; }))->getFile("a", true);
       }},
      {3,
       true,
       {},
       "a record of another signature",
       [] { open(withRecord([](auto& e) { e.centralSignature = 1; })); }},
      {4,
       true,
       {},
       "a record's name that the file cuts short",
       [] { open(cutInDirectory(storedEntry("name", "x"), 49)); }},
      {4,
       true,
       {},
       "a local name that the file cuts short",
       [] {
         zipbytes::File file;
         const std::string local =
             localHeader(storedEntry(std::string(9999, 'n'), "")).substr(0, 31);
         const MemoryPackage package(file.raw(local).list(storedEntry("a", "x")).bytes());
         package->getFile("a", true);
       }},
      {5,
       true,
       {},
       "an extra field that the file cuts short",
       [] {
         zipbytes::Entry entry = storedEntry("a", "x");
         entry.centralExtraLength = 9;
         open(cutInDirectory(entry, 1000));
       }},
      {6,
       true,
       {},
       "a record's comment that the file cuts short",
       [] {
         zipbytes::Entry entry = storedEntry("a", "x");
         entry.comment = "comment";
         open(cutInDirectory(entry, 50));
       }},
      {6,
       true,
       {},
       "a package's comment that the file cuts short",
       [] {
         zipbytes::File file;
         addStored(file, "a", "x");
         zipbytes::End end = file.end("short");
         end.commentLength = 6;
         open(file.bytes(end));
       }},
      {8,
       true,
       {},
       "a local header where none is",
       [] { MemoryPackage(withRecord([](auto& e) { e.offset = 1; }))->getFile("a", true); }},
      {9,
       true,
       {},
       "more records than a vector holds",
       [] { readEntries(std::uint64_t{1} << 60); }},
      {10, true, {}, "a file that cannot seek", [] { openUnseekable(kGood); }},
      {10,
       true,
       {},
       "a last record that comes short",
       [] { openFailing(kGood, 2, {Failure::ShortRead}); }},
      {10,
       true,
       {},
       "a slice that comes short",
       [] { openFailing(kGood + "behind", 3, {Failure::ShortRead}); }},
      {11,
       false,
       {},
       "a file without an end record",
       [] { open(kGood.substr(0, kGood.size() - 22)); }},
      {12,
       true,
       {},
       "a file that cannot seek",
       [] { readZip64(zip64(0x07064b50, 0x06064b50), 0, false); }},
      {12,
       true,
       {},
       "a locator that comes short",
       [] { readZip64(zip64(0x07064b50, 0x06064b50), 1); }},
      {13, true, {}, "a locator of another signature", [] { readZip64(zip64(1, 0x06064b50)); }},
      {14,
       true,
       {},
       "a record beyond the end",
       [] { readZip64(zip64(0x07064b50, 0x06064b50, 1000)); }},
      {15, true, {}, "a record of another signature", [] { readZip64(zip64(0x07064b50, 1)); }},
      {16, false, {}, "a split archive", [] { open("PK\x07\x08" + kGood); }},
      {20, false, {}, "another kind of file", [] { open("no package"); }},
      {46,
       false,
       {},
       "a deflated type under bit 1",
       [] {
         const Policy refuse(2);
         zipbytes::File file;
         open(addDeflated(file, "mimetype", "type").bytes(), &refuse);
       }},
      {47,
       false,
       {},
       "no type under bit 1",
       [] {
         const Policy refuse(2);
         open(packageOf({"a"}), &refuse);
       }},
      {50, true, std::strerror(EIO), "a file that cannot be read",
       [] { openFailing(kGood, 1, {Failure::Read}); }},
      {50, true, std::strerror(EIO), "a file that does not tell where it is",
       [] { openFailing(kGood, 1, {Failure::Tell}); }},
      {50, true, std::strerror(EACCES), "a file that must not be opened",
       [] { openFailing(kGood, 1, {Failure::Open}); }},
  };
}

std::vector<Road> callRoads() {
  return {
      {18,
       false,
       {},
       "opening the file of an open package",
       [] {
         const MemoryPackage package(kGood);
         dynamic_cast<pkg::zip::ZipPackage<>&>(*package).openFile(kIn);
       }},
      {19,
       false,
       {},
       "an iterator with a pattern",
       [] {
         Iterator iterator;
         MemoryPackage(kGood)->initIterator(iterator, {}, "*");
       }},
      {19,
       false,
       {},
       "a stream that reads and writes",
       [] { MemoryPackage(kGood)->getFile("a", true)->open(kIn | kOut, false); }},
      {21, false, {}, "a file that is not there", [] { MemoryPackage(kGood)->getFile("b", true); }},
      {21,
       false,
       {},
       "a directory that is not there",
       [] { MemoryPackage(kGood)->getDirectory("b", true); }},
      {21,
       false,
       {},
       "a stream of a file without data",
       [] { MemoryPackage(kGood)->getFile("b", false)->open(kIn, false); }},
      {22, false, {}, "an empty path", [] { MemoryPackage(kGood)->entryExists(""); }},
      {22,
       false,
       {},
       "a directory's path for a file",
       [] { MemoryPackage(kGood)->getFile("b/", false); }},
      {22,
       false,
       {},
       "a method that is none",
       [] {
         MemoryPackage(kGood)->getFile("a", true)->setCompressionMethod(pkg::CompressionDefault);
       }},
      {22,
       false,
       {},
       "a stream for nothing",
       [] { MemoryPackage(kGood)->getFile("a", true)->open({}, false); }},
      {22,
       false,
       {},
       "a seek from nowhere",
       [] {
         const MemoryPackage package(kGood);
         package.stream("a")->rdbuf()->pubseekoff(0, static_cast<std::ios_base::seekdir>(7), kIn);
       }},
      {22,
       false,
       {},
       "an entry of no package",
       [] { pkg::zip::ZipPkgFile<>("a", false, nullptr); }},
      {22,
       false,
       {},
       "a property of no such name",
       [] {
         support::FakeParser parser;
         MemoryPackage(kGood, nullptr, kIn, &parser)
             ->getFile("a", true)
             ->getProperty(static_cast<pkg::QCFPropertyName>(-1));
       }},
      {23,
       false,
       {},
       "a directory that is known, for a file",
       [] { MemoryPackage(kGood)->getFile("/", false); }},
      {23,
       false,
       {},
       "a directory as a file",
       [] { MemoryPackage(kGood)->getDirectory("d", true)->toFile(); }},
      {23,
       false,
       {},
       "a file as a directory",
       [] { MemoryPackage(kGood)->getFile("a", true)->toDirectory(); }},
      {23,
       false,
       {},
       "a generic property without a parser",
       [] { MemoryPackage(kGood)->getFile("a", true)->getProperty(pkg::QCFPropertyMacType); }},
      {23,
       true,
       {},
       "a mode that no file has",
       [] {
         pkg::QCFPackageFactory().openPackage("x", kIn | std::ios_base::app,
                                              pkg::BasePkgFileSystem<>::getInstance(), nullptr,
                                              nullptr);
       }},
      {24,
       false,
       {},
       "a closed package",
       [] {
         const MemoryPackage package(kGood);
         package->close();
         package->entryExists("a");
       }},
      {26,
       false,
       {},
       "reading what is open for writing",
       [] { MemoryPackage("", nullptr, kOut)->getFile("a", false)->open(kIn, false); }},
      {31,
       false,
       {},
       "broken deflated data",
       [] {
         const MemoryPackage package(brokenDeflate());
         package.stream("a")->rdbuf()->sgetc();
       }},
      {31,
       false,
       {},
       "broken deflated data in a transfer",
       [] {
         const MemoryPackage package(brokenDeflate());
         char c;
         package.stream("a")->rdbuf()->sgetn(&c, 1);
       }},
      {45,
       false,
       {},
       "another file before the type",
       [] {
         const Policy keep(1);
         MemoryPackage(packageOf({"a"}), &keep)->getFile("a", true);
       }},
      {45,
       false,
       {},
       "removing the type",
       [] {
         const Policy keep(1);
         MemoryPackage(kGood, &keep)->getFile("mimetype", true)->remove();
       }},
      {48,
       true,
       {},
       "a seek without a place for temporary files",
       [] {
         support::MemoryFileSystem memory;
         NoTemporaries files(memory);
         zipbytes::File file;
         memory.put("x", addDeflated(file, "a", "0123456789").bytes());
         pkg::QCFPackageFactory()
             .openPackage("x", kIn, &files, nullptr, nullptr)
             ->getFile("a", true)
             ->open(kIn, false)
             ->rdbuf()
             ->pubseekpos(5, kIn);
       }},
      {50, true, std::strerror(ENOSPC), "a seek on a full disk",
       [] { seekFailing(Failure::CreateTemp); }},
      {50, true, std::strerror(ENOSPC), "a copy that does not fit",
       [] { seekFailing(Failure::Write); }},
  };
}

}  // namespace errors
