#pragma once

#include "package/detail/ZipPackage.h"
#include "package/detail/ZipPkgStream.h"

namespace pkg::zip {

template <class Context>
ZipPkgStream<Context>::ZipPkgStream(ZipPkgFile<Context>* entry, std::ios_base::openmode mode,
                                    bool raw)
    : fBuf(entry, mode, raw) {
  this->rdbuf(&fBuf);
}

template <class Context>
ZipPkgStream<Context>::~ZipPkgStream() {
  try {
    close();
  } catch (...) {  // who wants to know calls close()
  }
}

template <class Context>
void ZipPkgStream<Context>::close() {
  if (!fBuf.fOpen) return;
  bool entryKnows = false;
  try {
    fBuf.end();
    entryKnows = true;
    fBuf.fEntry->streamClosed(this);
  } catch (...) {
    fBuf.fOpen = false;
    if (!entryKnows) {
      try {
        fBuf.fEntry->streamClosed(this);
      } catch (...) {  // the first failure is what the caller is told
      }
    }
    dropBuffer();
    throw;
  }
  dropBuffer();
}

template <class Context>
void ZipPkgStream<Context>::detach() {
  fBuf.fOpen = false;
  fBuf.fEntry = nullptr;
  dropBuffer();
}

// Every later operation fails in the stream and touches no file, which it lets go of: the client
// may hold the stream longer than the file system. The client's exception mask must not turn that
// into an exception now.
template <class Context>
void ZipPkgStream<Context>::dropBuffer() {
  fBuf.fFile.reset();
  this->exceptions(std::ios_base::goodbit);
  this->rdbuf(nullptr);
}

template <class Context>
void ZipPkgStreamBuf<Context>::end() {
  int result = Z_OK;
  if (this->fInflate != nullptr) {
    const std::unique_ptr<z_stream> stream(this->fInflate);
    this->fInflate = nullptr;
    result = inflateEnd(stream.get());
  }
  if (this->fDeflate != nullptr) {
    const int deflated = endDeflate();
    if (result == Z_OK) result = deflated;
  }
  this->fFile.reset();
  if (result != Z_OK) throw PackageException<>(PkgLib_Err_ClosingPackageFile);
  fOpen = false;
  if (!writes()) return;
  if (fInTemp) {
    fEntry->setExpectedSize(this->fFileEnd - this->fDataStart);
  } else if (!isOrphan()) {
    settleDirectEntry();
  }
}

template <class Context>
int ZipPkgStreamBuf<Context>::endDeflate() {
  const bool needsFinish = this->fDeflate->total_in != 0 && !isOrphan();
  if (this->fDeflateResult == Z_OK && needsFinish) finishDeflate();
  const std::unique_ptr<z_stream> stream(this->fDeflate);
  this->fDeflate = nullptr;
  const int result = deflateEnd(stream.get());
  return result == Z_DATA_ERROR && !needsFinish ? Z_OK : result;
}

template <class Context>
void ZipPkgStreamBuf<Context>::finishDeflate() {
  this->fDeflate->next_in = nullptr;
  this->fDeflate->avail_in = 0;
  seekFile();
  while (this->fDeflateResult == Z_OK)
    deflateBlock(Z_FINISH);
}

// The entry's record and, for an entry without data, its local header. An empty entry is stored,
// whatever its method.
template <class Context>
void ZipPkgStreamBuf<Context>::settleDirectEntry() {
  ZpCentralDirEntry<Context>& record = *fRecord;
  std::int64_t compressed = this->fFileEnd - this->fDataStart;
  if (fRaw && fEntry->getCompressionMethod() != CompressionStored && fSize > 0) {
    fSize = fEntry->fExpectedSize;
  }
  const std::int64_t uncompressed = fSize;
  if (uncompressed == 0) {
    fEntry->fWriteLocal->fHeader.method = CompressionStored;
    record.fHeader.method = CompressionStored;
    compressed = 0;
  }
  record.setFinalNumbers(static_cast<std::uint64_t>(uncompressed),
                         static_cast<std::uint64_t>(compressed));
  if (fSize == 0) fEntry->fWriteLocal->writeLFH(package()->fOutFile.get(), package());
}

}  // namespace pkg::zip
