#pragma once

#include <algorithm>
#include <cstring>
#include <sstream>

#include "package/detail/ZipPackage.h"
#include "package/detail/ZipPkgStream.h"
#include "package/source/Wrapping.h"

namespace pkg::zip {

// The most that one transfer moves: zlib and the file layer count in 32 bits.
constexpr std::streamsize kLargestTransfer = std::streamsize{1} << 30;

template <class Context>
typename ZipPkgStreamBuf<Context>::int_type ZipPkgStreamBuf<Context>::underflow() {
  if (this->gptr() < this->egptr()) return Traits::to_int_type(*this->gptr());

  const std::ptrdiff_t kept = std::min<std::ptrdiff_t>(kPutback, this->gptr() - this->eback());
  std::memmove(getData() - kept, this->gptr() - kept, static_cast<std::size_t>(kept));
  const std::streamsize count = fetch(getData(), kGetData);
  fPos = wrappingSum(fPos, count);
  if (count <= 0) return Traits::eof();
  this->setg(getData() - kept, getData(), getData() + count);
  return Traits::to_int_type(*this->gptr());
}

template <class Context>
std::streamsize ZipPkgStreamBuf<Context>::xsgetn(char* destination, std::streamsize count) {
  std::streamsize total = 0;
  while (total < count) {
    const std::streamsize held = this->egptr() - this->gptr();
    if (held > 0) {
      const std::streamsize taken = std::min(held, count - total);
      std::memcpy(destination + total, this->gptr(), static_cast<std::size_t>(taken));
      this->gbump(static_cast<int>(taken));
      total += taken;
      continue;
    }
    const std::streamsize fetched =
        fetch(destination + total, std::min(count - total, kLargestTransfer));
    fPos = wrappingSum(fPos, fetched);
    if (fetched <= 0) break;
    keepForPutback(destination + total, fetched);
    total += fetched;
  }
  return total;
}

// Leaves nothing unread in the get area and the last bytes that were delivered before it.
template <class Context>
void ZipPkgStreamBuf<Context>::keepForPutback(const char* delivered, std::streamsize count) {
  const std::ptrdiff_t fresh = std::min<std::ptrdiff_t>(kPutback, count);
  const std::ptrdiff_t old =
      std::min<std::ptrdiff_t>(kPutback - fresh, this->gptr() - this->eback());
  std::memmove(getData() - fresh - old, this->gptr() - old, static_cast<std::size_t>(old));
  std::memcpy(getData() - fresh, delivered + count - fresh, static_cast<std::size_t>(fresh));
  emptyGetArea(fresh + old);
}

template <class Context>
void ZipPkgStreamBuf<Context>::emptyGetArea(std::ptrdiff_t kept) {
  this->setg(getData() - kept, getData(), getData());
}

template <class Context>
std::streamsize ZipPkgStreamBuf<Context>::fetch(char* destination, std::streamsize count) {
  if (writes()) throw PackageException<>(PkgLib_Err_UnsupportedOperation);
  return inflates() ? fetchInflated(destination, count) : fetchDirect(destination, count);
}

template <class Context>
void ZipPkgStreamBuf<Context>::seekFile() {
  if (this->fFile->isSeekable()) this->fFile->seek(this->fFilePos, SEEK_SET);
}

template <class Context>
std::streamsize ZipPkgStreamBuf<Context>::fetchDirect(char* destination, std::streamsize count) {
  const std::int64_t remaining = wrappingDifference(this->fFileEnd, this->fFilePos);
  if (remaining <= 0) return 0;
  seekFile();
  const int got =
      this->fFile->read(destination, static_cast<int>(std::min<std::int64_t>(remaining, count)));
  this->fFilePos += got;
  return got;
}

// A failure of inflate is raised at the next pass, so that a call which fills the destination still
// delivers.
template <class Context>
std::streamsize ZipPkgStreamBuf<Context>::fetchInflated(char* destination, std::streamsize count) {
  z_stream& z = *this->fInflate;
  z.next_out = reinterpret_cast<Bytef*>(destination);
  z.avail_out = static_cast<uInt>(count);
  while (z.avail_out != 0 && this->fInflateResult != Z_STREAM_END) {
    if (this->fInflateResult != Z_OK) failInflating();
    if (z.avail_in == 0) refillInput();
    this->fInflateResult = inflate(&z, Z_NO_FLUSH);
  }
  return count - static_cast<std::streamsize>(z.avail_out);
}

template <class Context>
void ZipPkgStreamBuf<Context>::refillInput() {
  const std::int64_t remaining = wrappingDifference(this->fFileEnd, this->fFilePos);
  if (remaining <= 0) return;
  seekFile();
  const int got = this->fFile->read(
      this->fInBuf, static_cast<int>(std::min<std::int64_t>(remaining, sizeof this->fInBuf)));
  this->fFilePos += got;
  this->fInflate->next_in = reinterpret_cast<Bytef*>(this->fInBuf);
  this->fInflate->avail_in = static_cast<uInt>(got);
}

template <class Context>
void ZipPkgStreamBuf<Context>::failInflating() {
  std::ostringstream detail;  // for a debugger: the exception carries the code alone
  detail << "Zip inflate exception: " << this->fInflateResult;
  if (this->fInflate->msg != nullptr) detail << " " << this->fInflate->msg;
  throw PackageException<>(PkgLib_Err_Decompressing);
}

}  // namespace pkg::zip
