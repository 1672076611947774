#include <functional>

#include <gtest/gtest.h>

#include "failures/Listing.h"
#include "failures/Trial.h"
#include "failures/Ways.h"

// The failures that nobody is told of, one by one: what a client then has in its hands.

namespace failures {

namespace {

using support::FileCall;

// Fails where the test says so.
class ChosenFailures : public support::FileSystemWrapper {
public:
  using FileSystemWrapper::FileSystemWrapper;

  std::function<bool(FileCall)> fails;

protected:
  int read(InnerFile& file, void* buffer, int size) override {
    if (fails && fails(FileCall::Read)) pkg::throwSystemError(EIO);
    return file.read(buffer, size);
  }
  void write(InnerFile& file, const void* buffer, int size) override {
    if (fails && fails(FileCall::Write)) pkg::throwSystemError(ENOSPC);
    file.write(buffer, size);
  }
  void close(InnerFile& file) override {
    if (fails && fails(FileCall::Close)) pkg::throwSystemError(EIO);
    file.close();
  }
};

class Silent : public testing::Test {
protected:
  ~Silent() override { fClient.drop(); }

  void start(const char* way) {
    for (const Way& one : ways()) {
      if (std::string(one.name) == way) fWay = &one;
    }
    fMemory.put("old", fWay->old);
    fWay->open(fClient);
  }
  // The n-th call of a kind from now on fails.
  void failAt(FileCall kind, int n) {
    fFiles.fails = [kind, n](FileCall call) mutable { return call == kind && --n == 0; };
  }
  // Opens an entry that is read from `position`, and reads all that comes.
  Bytes readFrom(const std::string& name, long long position) {
    const Stream stream = fClient.package->getFile(name, true)->open(kIn, false);
    stream->exceptions(std::ios_base::badbit);
    stream->seekg(position);
    Bytes text(40000, '\0');
    stream->read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(stream->gcount()));
    return text;
  }
  const Bytes& contentOf(const std::string& name) { return unchangedEntries().at(name); }

  support::MemoryFileSystem fMemory;
  ChosenFailures fFiles{fMemory};
  Client fClient{fFiles, ""};
  const Way* fWay = nullptr;
};

// The sizes that its record took over are those of the whole: other programs notice.
TEST_F(Silent, AReadThatFailsWhileAnUnchangedEntryIsCopiedLeavesItShortAndUnsound) {
  start("SaveAs");
  failAt(FileCall::Read, 3);  // the second block of the second entry
  fClient.package->saveAs("new", kIn | kOut | kTrunc);
  const Listing all = listed(fMemory.bytes("new"));
  EXPECT_EQ(all.at("stored.bin").content, contentOf("stored.bin").substr(0, 16384));
  EXPECT_FALSE(all.at("stored.bin").sound);
  EXPECT_TRUE(all.at("deflated.txt").sound);
}

// What was copied is all there is: nothing tells of the rest.
TEST_F(Silent, AReadThatFailsWhileAChangedEntryIsCopiedMakesAShortEntryThatIsSound) {
  start("UnsafeInPlace");
  fClient.write("new.bin", Bytes(20000, 'n'), pkg::CompressionStored);
  failAt(FileCall::Read, 2);
  fClient.package->doUNSAFEUpdateInPlace();
  const Listing all = listed(fMemory.bytes("old"));
  EXPECT_EQ(all.at("new.bin").content, Bytes(16384, 'n'));
  EXPECT_TRUE(all.at("new.bin").sound);
}

TEST_F(Silent, AReadThatFailsWhileARepairReadsTheTypeLeavesTheTypeEmpty) {
  int reads = 0;
  fFiles.fails = [&](FileCall call) { return call == FileCall::Read && ++reads == 21; };
  start("RepairAtOpenAndSaveAs");
  EXPECT_EQ(fClient.package->checkConformance(), pkg::PkgLib_Err_InvalidMimetype);
  EXPECT_EQ(fClient.package->getMIMEType(), "");
  fClient.package->saveAs("new", kIn | kOut | kTrunc);
  EXPECT_EQ(listed(fMemory.bytes("new")).at("mimetype").content, "");
}

// The copy counts as the entry from then on.
TEST_F(Silent, AReadThatFailsWhileSeekingMakesItsCopyCutsTheEntryShortForThisPackage) {
  start("SeekInADeflatedEntry");
  failAt(FileCall::Read, 3);
  const Bytes& whole = contentOf("deflated.txt");
  const Bytes rest = readFrom("deflated.txt", 100);
  EXPECT_LT(rest.size(), whole.size() - 100);
  EXPECT_EQ(rest, whole.substr(100, rest.size()));
  EXPECT_EQ(fClient.read("deflated.txt").size(), rest.size() + 100);
}

// What was copied so far is nobody's: a new stream reads the package, and one that moves makes the
// copy anew.
TEST_F(Silent, AWriteThatFailsWhileSeekingMakesItsCopyIsToldOnceAndTheNextSeekMakesAWholeOne) {
  start("SeekInADeflatedEntry");
  failAt(FileCall::Write, 3);
  EXPECT_EQ(raised([&] { readFrom("deflated.txt", 100); }), "IO 50");
  const Bytes& whole = contentOf("deflated.txt");
  EXPECT_EQ(fClient.read("deflated.txt"), whole);
  EXPECT_EQ(readFrom("deflated.txt", 100), whole.substr(100));
  EXPECT_EQ(fClient.read("deflated.txt"), whole);
  EXPECT_EQ(fMemory.temporaryFiles(), 1);
}

TEST_F(Silent, ACloseThatFailsWhenTheCopyIsMadeHarmsNothing) {
  start("SeekInADeflatedEntry");
  failAt(FileCall::Close, 1);
  EXPECT_EQ(readFrom("deflated.txt", 100), contentOf("deflated.txt").substr(100));
}

}  // namespace

}  // namespace failures
