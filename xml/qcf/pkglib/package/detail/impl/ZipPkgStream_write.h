#pragma once

#include <algorithm>

#include "package/detail/ZipPackage.h"
#include "package/detail/ZipPkgStream.h"

namespace pkg::zip {

template <class Context>
std::streamsize ZipPkgStreamBuf<Context>::xsputn(const char* source, std::streamsize count) {
  std::streamsize total = 0;
  while (total < count) {
    total += put(source + total, std::min(count - total, kLargestTransfer));
  }
  return total;
}

template <class Context>
typename ZipPkgStreamBuf<Context>::int_type ZipPkgStreamBuf<Context>::overflow(int_type c) {
  if (Traits::eq_int_type(c, Traits::eof())) return 0;
  const char byte = Traits::to_char_type(c);
  put(&byte, 1);
  return c;
}

// The first byte of a direct stream brings the local header along.
template <class Context>
std::streamsize ZipPkgStreamBuf<Context>::put(const char* source, std::streamsize count) {
  if (!writes()) throw PackageException<>(PkgLib_Err_UnsupportedOperation);
  if (isOrphan()) throw PackageException<>(PkgLib_Err_IllegalState);
  if (!fInTemp && fPos == 0) fEntry->fWriteLocal->writeLFH(package()->fOutFile.get(), package());
  if (!fInTemp && !fRaw) {
    CentralDirHeader& header = fRecord->fHeader;
    header.crc32 = static_cast<std::uint32_t>(
        crc32(header.crc32, reinterpret_cast<const Bytef*>(source), static_cast<uInt>(count)));
  }
  seekFile();
  std::streamsize accepted = count;
  if (this->fMethod == CompressionStored) {
    this->fFile->write(source, static_cast<int>(count));
    this->fFilePos += count;
    this->fFileEnd = std::max(this->fFileEnd, this->fFilePos);
  } else {
    accepted = deflateBytes(source, count);
  }
  fPos += accepted;
  fSize = std::max(fSize, fPos);
  if (accepted < count) throw PackageException<>(PkgLib_Err_WriteDeflateFailed);
  return accepted;
}

// Returns how many bytes deflate has taken.
template <class Context>
std::streamsize ZipPkgStreamBuf<Context>::deflateBytes(const char* source, std::streamsize count) {
  z_stream& z = *this->fDeflate;
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(source));
  z.avail_in = static_cast<uInt>(count);
  while (z.avail_in != 0 && this->fDeflateResult == Z_OK)
    deflateBlock(Z_NO_FLUSH);
  return count - static_cast<std::streamsize>(z.avail_in);
}

// One call of deflate, and what came out of it into the file.
template <class Context>
void ZipPkgStreamBuf<Context>::deflateBlock(int flush) {
  z_stream& z = *this->fDeflate;
  Bytef block[ZipPkgStreamData<Context>::kBlock];
  z.next_out = block;
  z.avail_out = sizeof block;
  this->fDeflateResult = deflate(&z, flush);
  const auto produced = static_cast<int>(sizeof block - z.avail_out);
  if (produced == 0) return;
  this->fFile->write(block, produced);
  this->fFilePos += produced;
  this->fFileEnd = this->fFilePos;
}

}  // namespace pkg::zip
