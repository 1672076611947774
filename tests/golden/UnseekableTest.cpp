#include <cerrno>
#include <string>
#include <utility>

#include "golden/Golden.h"
#include "golden/Readers.h"

// Output that only goes forward, under each answer of the policies.

namespace {

using namespace golden;
using pkg::CompressionStored;

class Unseekable : public Golden {
protected:
  Unseekable() { fFiles = &fForward; }

  support::UnseekableFileSystem fForward{fMemory};
};

// Answers 0 and 4 of the CRC policy put the expected CRC into the header; nobody expects one here.
TEST_F(Unseekable, ByDefaultNumbersFollowInDescriptors) {
  const Package package = create();
  write(package, "stored.txt", "some data", CompressionStored);
  write(package, "deflated.txt", prose(20000));
  write(package, "empty.txt", "");
  package->getDirectory("d", false)->create();
  package->endUpdate();

  zipbytes::File expected;
  const auto add = [&](Entry entry, const Bytes& data) {
    const Entry central = described(std::move(entry));
    expected.addAs(withoutNumbers(central), central, data, descriptorOf(central));
  };
  add(storedEntry("stored.txt", "some data"), "some data");
  add(deflatedEntry("deflated.txt", prose(20000)), deflated(prose(20000)));
  add(emptyEntry("empty.txt"), "");
  add(directoryEntry("d/"), "");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
}

// A stream that goes straight to a reader, which must not need the directory.
TEST_F(Unseekable, DescriptorsLetAPipedReaderThrough) {
  const Package package = create();
  write(package, "deflated.txt", prose(20000));
  package->getDirectory("d", false)->create();
  package->endUpdate();
  EXPECT_EQ(support::mustRun({{"bsdtar", "-tf", "-"}, bytes(), {}, {}}), "deflated.txt\nd/\n");
}

struct Answers {
  std::int32_t descriptor;
  std::int32_t crc;
};

class UnseekablePolicies : public Unseekable, public testing::WithParamInterface<Answers> {
protected:
  // Writes an entry whose numbers are announced first.
  void writeAnnounced(std::string_view data, long long size, std::uint32_t crc) {
    fPolicies.descriptor = GetParam().descriptor;
    fPolicies.crc = GetParam().crc;
    const Package package = create();
    const auto file = package->getFile("a.txt", false);
    file->setExpectedSize(size);
    file->setExpectedCRC32(crc);
    write(package, "a.txt", data, CompressionStored);
    package->endUpdate();
  }
  bool announcesCRC() const { return GetParam().crc == 0 || GetParam().crc == 4; }
  bool recordsNoCRC() const { return GetParam().crc == 5; }
  bool describes() const { return GetParam().descriptor != 3; }
};

TEST_P(UnseekablePolicies, AnAnnouncedEntryHasInItsHeaderWhatThePoliciesSay) {
  writeAnnounced("some data", 9, zipbytes::crc32("some data"));

  Entry central = storedEntry("a.txt", "some data");
  if (recordsNoCRC()) central.crc = 0;
  if (describes()) central = described(central);
  Entry local = central;
  local.crc = announcesCRC() ? zipbytes::crc32("some data") : 0;
  if (describes()) local.compressedSize = local.size = 0;
  zipbytes::File expected;
  expected.addAs(local, central, "some data", describes() ? descriptorOf(central) : "");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

TEST_P(UnseekablePolicies, WhatWasAnnouncedWronglyStandsInTheHeaderForGood) {
  writeAnnounced("some data", 9, 0x12345678);
  const Bytes crc = bytes().substr(14, 4);
  EXPECT_EQ(crc, zipbytes::u32(announcesCRC() ? 0x12345678 : 0));
}

INSTANTIATE_TEST_SUITE_P(Answers, UnseekablePolicies,
                         testing::Values(Answers{0, 0}, Answers{0, 1}, Answers{0, 4}, Answers{0, 5},
                                         Answers{2, 0}, Answers{2, 1}, Answers{2, 4}, Answers{2, 5},
                                         Answers{3, 0}, Answers{3, 1}, Answers{3, 4}, Answers{3, 5},
                                         Answers{1, 0}, Answers{7, 9}),
                         [](const auto& suite) {
                           return "Descriptor" + std::to_string(suite.param.descriptor) + "CRC" +
                                  std::to_string(suite.param.crc);
                         });

TEST_F(Unseekable, AnAnnouncedEntryWithoutDescriptorIsGoodForEveryReader) {
  fPolicies.descriptor = 3;
  const Package package = create();
  const auto file = package->getFile("a.txt", false);
  file->setExpectedSize(9);
  file->setExpectedCRC32(zipbytes::crc32("some data"));
  write(package, "a.txt", "some data", CompressionStored);
  package->endUpdate();

  zipbytes::File expected;
  expected.add(storedEntry("a.txt", "some data"), "some data");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
}

TEST_F(Unseekable, WithoutDescriptorASizeOfMinusOneBecomesAllOnes) {
  fPolicies.descriptor = 3;
  const Package package = create();
  const auto file = package->getFile("a.txt", false);
  file->setCompressionMethod(CompressionStored);
  file->setExpectedSize(-1);
  const Stream stream = file->open(kOut, false);
  *stream << "x";
  EXPECT_EQ(bytes().substr(18, 8), zipbytes::u32(0xFFFFFFFF) + zipbytes::u32(0xFFFFFFFF));
}

// A file system of which one file only goes forward.
class OnePipe : public support::FileSystemWrapper {
public:
  OnePipe(pkg::IPkgFileSystem<>& inner, std::string name)
      : FileSystemWrapper(inner), fName(std::move(name)) {}

protected:
  std::uint32_t capabilities(InnerFile& file) override {
    return file.getName()->getName() == fName ? 0 : file.getCapabilities();
  }
  void seek(InnerFile& file, long long offset, int whence) override {
    if (file.getName()->getName() == fName) pkg::throwSystemError(ESPIPE);
    file.seek(offset, whence);
  }

private:
  std::string fName;
};

class SaveToPipe : public Unseekable, public testing::WithParamInterface<std::int32_t> {};

// A copy has its numbers beforehand: they stand in the header, whatever follows behind the data.
TEST_P(SaveToPipe, UnchangedEntriesKeepTheirNumbersInTheHeader) {
  OnePipe pipe(fMemory, "new.pkg");
  fFiles = &pipe;
  fPolicies.descriptor = GetParam();
  zipbytes::File old;
  old.add(storedEntry("a.txt", "some data"), "some data");
  old.add(deflatedEntry("b.txt", prose(3000)), deflated(prose(3000)));
  const Package package = open(old.bytes());
  package->saveAs("new.pkg", kOut);

  zipbytes::File expected;
  for (const auto& [entry, data] :
       {std::pair(storedEntry("a.txt", "some data"), Bytes("some data")),
        std::pair(deflatedEntry("b.txt", prose(3000)), deflated(prose(3000)))}) {
    const bool describes = GetParam() != 3;
    const Entry copy = describes ? described(entry) : entry;
    expected.add(copy, data, describes ? descriptorOf(copy) : "");
  }
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
  EXPECT_EQ(support::mustRun({{"bsdtar", "-tf", "-"}, bytes(), {}, {}}), "a.txt\nb.txt\n");
}

INSTANTIATE_TEST_SUITE_P(DescriptorAnswers, SaveToPipe, testing::Values(0, 2, 3));

TEST_F(Unseekable, ATemporaryFileThatCannotSeekIsRefused) {
  support::UnseekableFileSystem nothingSeeks(fMemory, true);
  fFiles = &nothingSeeks;
  const Package package = fFactory.openPackage("new.pkg", kOut | kTrunc, fFiles, nullptr, nullptr);
  const auto file = package->getFile("a.txt", false);
  try {
    file->open(kOut, false);
    ADD_FAILURE() << "nothing was raised";
  } catch (pkg::PackageException<>& e) {
    EXPECT_EQ(e.getErrorCode(), pkg::PkgLib_Err_UnsupportedOperation);
  }
}

}  // namespace
