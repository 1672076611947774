#include "unit/writing/FailingZlib.h"
#include "unit/writing/Writing.h"

// What a stream that writes does when zlib fails.

namespace {

using namespace writing;
using failingzlib::gRefusals;

class DeflateFailures : public Writing {
protected:
  ~DeflateFailures() override { gRefusals = {}; }
};

// The record stands in the directory that is being built; no stream does.
TEST_F(DeflateFailures, AStreamThatCannotStartToDeflateRaises32AndTheOutputStaysFree) {
  const Package package = create();
  gRefusals.init = Z_MEM_ERROR;
  EXPECT_RAISED("32", openForWriting(package, "a.txt", CompressionDeflated));
  gRefusals = {};
  write(package, "b.txt", "direct", CompressionStored);
  EXPECT_NE(bytes().find("direct"), Bytes::npos);
  package->endUpdate();
  EXPECT_EQ(u16At(bytes(), bytes().size() - 12), 2u);
}

TEST_F(DeflateFailures, StoredRawAndSpooledStreamsNeedNoDeflate) {
  gRefusals.init = Z_MEM_ERROR;
  const Package package = create();
  write(package, "stored.txt", "stored", CompressionStored);
  openForWriting(package, "raw.txt", CompressionDeflated, true)->write("raw", 3);
  const Stream direct = openForWriting(package, "direct.txt");
  EXPECT_NO_THROW(openForWriting(package, "spooled.txt", CompressionDeflated));
}

TEST_F(DeflateFailures, AFailureThatLeavesInputRaises27FromThisAndEveryLaterWrite) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt", CompressionDeflated);
  gRefusals.deflate = Z_STREAM_ERROR;
  EXPECT_RAISED("27", stream->write("data", 4));
  gRefusals = {};
  stream->clear();
  EXPECT_RAISED("27", stream->write("more", 4));
  stream->clear();
  EXPECT_RAISED("27", stream->put('x'));
  stream->clear();
  EXPECT_NO_THROW(stream->write("", 0));
}

// The last call has taken everything: nothing is amiss until the stream has to be finished.
TEST_F(DeflateFailures, AFailureThatTakesItsInputComesOutAtCloseAs30) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt", CompressionDeflated);
  stream->write("first", 5);
  gRefusals.deflate = Z_STREAM_ERROR;
  gRefusals.takesAll = true;
  EXPECT_NO_THROW(stream->write("second", 6));
  gRefusals = {};
  EXPECT_RAISED("30", stream->close());
  EXPECT_NO_THROW(stream->close());
}

// The record keeps the sizes that it had, and the output is free for the next entry.
TEST_F(DeflateFailures, AnEndThatFailsRaises30AndLeavesTheEntryWithoutSizes) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt", CompressionDeflated);
  stream->write("data", 4);
  gRefusals.end = Z_STREAM_ERROR;
  EXPECT_RAISED("30", stream->close());
  gRefusals = {};
  EXPECT_EQ(package->getFile("a.txt", true)->getCompressedSize64(), 0);
  EXPECT_EQ(package->getFile("a.txt", true)->getSize64(), 0);
  write(package, "b.txt", "direct", CompressionStored);
  EXPECT_NE(bytes().find("direct"), Bytes::npos);
}

TEST_F(DeflateFailures, AnEndThatFailsRaisesNothingFromTheDestructor) {
  const Package package = create();
  Stream stream = openForWriting(package, "a.txt", CompressionDeflated);
  stream->write("data", 4);
  gRefusals.end = Z_STREAM_ERROR;
  EXPECT_NO_THROW(stream.reset());
}

// zlib complains of a stream that is ended in the middle; one that never began has no middle.
TEST_F(DeflateFailures, TheComplaintOfAnEmptyStreamIsNoFailure) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt", CompressionDeflated);
  gRefusals.end = Z_DATA_ERROR;
  EXPECT_NO_THROW(stream->close());
  EXPECT_EQ(u16At(bytes(), 8), 0u);
}

}  // namespace
