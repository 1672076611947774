#pragma once

#include <cstring>
#include <memory>

#include "package/detail/ZipPackage.h"
#include "package/detail/ZipPkgStream.h"
#include "package/source/Wrapping.h"

namespace pkg::zip {

constexpr int kRawWindowBits = -15;         // raw deflate, 32 KiB window
constexpr int kMaximumMemoryLevel = 9;      // not zlib's default of 8
constexpr char kZlibInterface[] = "1.2.3";  // the oldest zlib that will do

template <class Context>
ZipPkgStreamBuf<Context>::ZipPkgStreamBuf(ZipPkgFile<Context>* entry, openmode mode, bool raw)
    : fEntry(entry), fMode(mode), fRaw(raw) {
  emptyGetArea(0);
  if (fEntry->fTempFile.exists()) fEntry->fTempFile.reopened();
  if (writes()) {
    initWriting();
  } else {
    initReading();
  }
}

template <class Context>
void ZipPkgStreamBuf<Context>::initReading() {
  fInTemp = !fRaw && fEntry->fTempFile.counts();
  if (fInTemp) {
    adoptTempFile();
    return;
  }
  if (!fEntry->fReadCentral || !fEntry->fReadLocal) {
    throw PackageException<>(PkgLib_Err_EntryNotFound);
  }
  this->fFile = package()->fPackageFile;
  this->fMethod = fRaw ? CompressionStored : fEntry->getCompressionMethod();
  startAt(static_cast<std::int64_t>(fEntry->fReadCentral->fLocalOffset +
                                    fEntry->fReadLocal->dataOffset));
  fSize = fRaw ? fEntry->getCompressedSize64() : fEntry->getSize64();
  this->fFileEnd = wrappingSum(this->fDataStart, fEntry->getCompressedSize64());
  if (inflates()) startInflate();
}

template <class Context>
void ZipPkgStreamBuf<Context>::initWriting() {
  const bool readsToo = (fMode & std::ios_base::in) != 0;
  fInTemp = !package()->fInUpdate || package()->fCurrentWriter != nullptr;
  if (fInTemp) {
    adoptTempFile();
    if (readsToo) throw PackageException<>(PkgLib_Err_NotImplemented);
    return;
  }
  if (readsToo) throw PackageException<>(PkgLib_Err_NotImplemented);
  this->fFile = package()->fOutFile;
  this->fMethod = fRaw ? CompressionStored : fEntry->getCompressionMethod();
  startAt(static_cast<std::int64_t>(fEntry->fWriteCentral->fLocalOffset +
                                    fEntry->fWriteLocal->dataOffset()));
  fRecord = fEntry->fWriteCentral;
  fRecord->fHeader.crc32 =
      fRaw ? fEntry->fExpectedCRC : static_cast<std::uint32_t>(crc32(0, nullptr, 0));
  if (inflates()) startDeflate();
}

// The whole of the entry's temporary file, as it stands.
template <class Context>
void ZipPkgStreamBuf<Context>::adoptTempFile() {
  const auto& file = fEntry->fTempFile.reopened();
  if (!file->isSeekable()) throw PackageException<>(PkgLib_Err_UnsupportedOperation);
  file->seek(0, SEEK_END);
  const std::int64_t size = file->tell();
  this->fFile = file;
  this->fMethod = CompressionStored;
  startAt(0);
  fSize = size;
  this->fFileEnd = size;
}

template <class Context>
void ZipPkgStreamBuf<Context>::startAt(std::int64_t dataStart) {
  this->fDataStart = dataStart;
  this->fFilePos = dataStart;
  this->fFileEnd = dataStart;
  this->fPlain = dataStart == 0;
}

// Never null: what operator new raises goes through zlib to the caller. A lone structure is zlib's
// own state, which is cleared so that deflateEnd can free one that an exception left half made.
template <class Context>
void* ZipPkgStreamBuf<Context>::zAlloc(void*, unsigned items, unsigned size) {
  void* const block = ::operator new(items* size);
  if (items == 1) std::memset(block, 0, size);
  return block;
}

template <class Context>
void ZipPkgStreamBuf<Context>::zFree(void*, void* block) {
  ::operator delete(block);
}

template <class Context>
std::unique_ptr<z_stream> ZipPkgStreamBuf<Context>::newZStream() {
  auto stream = std::make_unique<z_stream>();
  stream->zalloc = zAlloc;
  stream->zfree = zFree;
  stream->opaque = &fZOpaque;
  return stream;
}

template <class Context>
void ZipPkgStreamBuf<Context>::startInflate() {
  this->fInflateResult = Z_OK;
  std::unique_ptr<z_stream> stream = newZStream();
  if (inflateInit2_(stream.get(), kRawWindowBits, kZlibInterface, sizeof(z_stream)) != Z_OK) {
    throw PackageException<>(PkgLib_Err_Decompressing);
  }
  this->fInflate = stream.release();
}

template <class Context>
void ZipPkgStreamBuf<Context>::startDeflate() {
  this->fDeflateResult = Z_OK;
  std::unique_ptr<z_stream> stream = newZStream();
  int result = Z_OK;
  try {
    result =
        deflateInit2_(stream.get(), Z_DEFAULT_COMPRESSION, Z_DEFLATED, kRawWindowBits,
                      kMaximumMemoryLevel, Z_DEFAULT_STRATEGY, kZlibInterface, sizeof(z_stream));
  } catch (...) {
    deflateEnd(stream.get());
    throw;
  }
  if (result != Z_OK) throw PackageException<>(PkgLib_Err_Compressing);
  this->fDeflate = stream.release();
}

template <class Context>
ZipPkgStreamData<Context>::~ZipPkgStreamData() {
  if (fInflate != nullptr) {
    inflateEnd(fInflate);
    delete fInflate;
  }
  if (fDeflate != nullptr) {
    deflateEnd(fDeflate);
    delete fDeflate;
  }
}

}  // namespace pkg::zip
