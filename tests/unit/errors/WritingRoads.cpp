#include <cerrno>
#include <cstring>

#include "unit/errors/Roads.h"
#include "unit/package/detail/FakeParser.h"
#include "unit/writing/FailingZlib.h"
#include "unit/writing/Writing.h"

namespace {

using namespace writing;
using failingzlib::gRefusals;

constexpr auto kNew = kIn | kOut | kTrunc;

// A package in memory, of old entries or new and in an update.
struct Room {
  explicit Room(std::int32_t conformance = 0) { policies.conformance = conformance; }

  Package open(const Bytes& bytes) {
    memory.put("a.pkg", bytes);
    return openAs(kIn | kOut);
  }
  Package create() {
    const Package package = openAs(kOut | kTrunc);
    package->beginUpdate();
    return package;
  }
  Package openAs(std::ios_base::openmode mode) {
    return pkg::QCFPackageFactory().openPackage("a.pkg", mode, files, &policies, nullptr);
  }

  support::MemoryFileSystem memory;
  pkg::IPkgFileSystem<>* files = &memory;
  PolicyAnswers policies;
};

Bytes oldPackage() {
  zipbytes::File file;
  file.add(storedEntry("a.txt", "alpha"), "alpha");
  file.add(directoryEntry("d/"), "");
  return file.bytes();
}

// Has zlib fail while an action runs.
class Refusing {
public:
  explicit Refusing(failingzlib::Refusals refusals) { gRefusals = refusals; }
  ~Refusing() { gRefusals = {}; }
  Refusing(const Refusing&) = delete;
  Refusing& operator=(const Refusing&) = delete;
};

}  // namespace

namespace errors {

std::vector<Road> writingRoads() {
  return {
      {7,
       false,
       {},
       "a size that outgrows its header",
       [] {
         Room room;
         const Package package = room.create();
         const Stream stream = openForWriting(package, "a.txt", CompressionDeflated, true);
         *stream << "xx";
         package->getFile("a.txt", true)->setExpectedSize(0x100000000);
         stream->close();
       }},
      {17,
       false,
       {},
       "another size than was announced to a pipe",
       [] {
         Room room;
         support::UnseekableFileSystem forward(room.memory);
         room.files = &forward;
         room.policies.descriptor = 3;
         const Package package = room.create();
         const Stream stream = openForWriting(package, "a.txt");
         *stream << "data";
         stream->close();
       }},
      {24,
       false,
       {},
       "an update of a closed package",
       [] {
         Room room;
         const Package package = room.open(oldPackage());
         package->close();
         package->beginUpdate();
       }},
      {25,
       false,
       {},
       "creating a directory that is there",
       [] { Room().open(oldPackage())->getDirectory("d", true)->create(); }},
      {27,
       false,
       {},
       "data that deflate refuses",
       [] {
         Room room;
         const Package package = room.create();
         const Stream stream = openForWriting(package, "a.txt", CompressionDeflated);
         failingzlib::Refusals refusals;
         refusals.deflate = Z_STREAM_ERROR;
         const Refusing refusing(refusals);
         stream->write("data", 4);
       }},
      {28,
       false,
       {},
       "a generic property outside an update",
       [] {
         Room room;
         room.memory.put("a.pkg", oldPackage());
         support::FakeParser parser;
         pkg::QCFPackageFactory()
             .openPackage("a.pkg", kIn | kOut, room.files, nullptr, &parser)
             ->getFile("a.txt", true)
             ->setProperty(pkg::QCFPropertyDateTime, "now");
       }},
      {29,
       true,
       {},
       "a disk that takes half of the data",
       [] {
         Room room;
         support::FailingFileSystem full(room.memory, 1, {support::Failure::ShortWrite});
         room.files = &full;
         room.open(oldPackage())->saveAs("new.pkg", kNew);
       }},
      {30,
       false,
       {},
       "a stream that deflate cannot end",
       [] {
         Room room;
         const Package package = room.create();
         const Stream stream = openForWriting(package, "a.txt", CompressionDeflated);
         stream->write("data", 4);
         failingzlib::Refusals refusals;
         refusals.end = Z_STREAM_ERROR;
         const Refusing refusing(refusals);
         stream->close();
       }},
      {32,
       false,
       {},
       "a stream that deflate cannot begin",
       [] {
         Room room;
         failingzlib::Refusals refusals;
         refusals.init = Z_MEM_ERROR;
         const Refusing refusing(refusals);
         openForWriting(room.create(), "a.txt", CompressionDeflated);
       }},
      {35, false, {}, "an update in an update", [] { Room().create()->beginUpdate(); }},
      {36,
       false,
       {},
       "saving into a file that is only read",
       [] { Room().open(oldPackage())->saveAs("new.pkg", kIn); }},
      {37, false, {}, "ending no update", [] { Room().open(oldPackage())->endUpdate(); }},
      {37, false, {}, "cancelling no update", [] { Room().open(oldPackage())->cancelUpdate(); }},
      {45,
       false,
       {},
       "a type that is compressed",
       [] { openForWriting(Room(1).create(), "mimetype", CompressionDeflated); }},
      {47,
       false,
       {},
       "saving a repaired package after an update in itself",
       [] {
         Room room(1);
         zipbytes::File file;
         file.add(deflatedEntry("mimetype", "text/plain"), deflated("text/plain"));
         const Package package = room.open(file.bytes());
         package->beginUpdate();
         package->endUpdate();
         package->saveAs("new.pkg", kNew);
       }},
      {50, true, std::strerror(EIO), "a file that cannot be cut",
       [] {
         Room room;
         support::FailingFileSystem failing(room.memory, 1, {support::Failure::Truncate});
         room.files = &failing;
         room.open(oldPackage())->doUNSAFEUpdateInPlace();
       }},
  };
}

}  // namespace errors
