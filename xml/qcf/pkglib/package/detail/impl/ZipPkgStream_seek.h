#pragma once

#include "package/detail/ZipPackage.h"
#include "package/detail/ZipPkgStream.h"
#include "package/source/Wrapping.h"

namespace pkg::zip {

// The position that a client sees.
template <class Context>
std::int64_t ZipPkgStreamBuf<Context>::current() const {
  return wrappingDifference(fPos, this->egptr() - this->gptr());
}

template <class Context>
typename ZipPkgStreamBuf<Context>::pos_type ZipPkgStreamBuf<Context>::seekoff(
    off_type offset, std::ios_base::seekdir direction, openmode) {
  std::int64_t target = 0;
  if (direction == std::ios_base::cur) {
    if (offset == 0) return pos_type(current());
    target = wrappingSum(offset, current());
  } else if (direction == std::ios_base::beg) {
    if (offset == current()) return pos_type(offset);
    target = offset;
  } else if (direction == std::ios_base::end) {
    maybeSwitchToTemp();  // even to stand still: only the copy knows the true size
    target = wrappingSum(offset, fSize);
  } else {
    throw PackageException<>(PkgLib_Err_BadArgument);
  }
  maybeSwitchToTemp();
  return target == current() ? pos_type(target) : moveTo(target);
}

template <class Context>
typename ZipPkgStreamBuf<Context>::pos_type ZipPkgStreamBuf<Context>::seekpos(pos_type position,
                                                                              openmode) {
  const std::int64_t target = position;
  return target == current() ? pos_type(target) : moveTo(target);
}

// No bounds are checked: beyond the end, the next read delivers nothing.
template <class Context>
typename ZipPkgStreamBuf<Context>::pos_type ZipPkgStreamBuf<Context>::moveTo(std::int64_t target) {
  maybeSwitchToTemp();
  fPos = target;
  this->fFilePos = wrappingSum(target, this->fDataStart);
  emptyGetArea(0);
  return pos_type(target);
}

// Deflated data can only be inflated forward. The first move makes a plain copy of the whole entry
// in its temporary file, and the stream reads that from then on, at the same position.
template <class Context>
void ZipPkgStreamBuf<Context>::maybeSwitchToTemp() {
  if (fInTemp || fEntry->getCompressionMethod() == CompressionStored) return;
  if (writes()) throw PackageException<>(PkgLib_Err_UnsupportedOperation);
  if (!fEntry->fTempFile.counts()) fEntry->fTempFile.discard();  // a copy that stopped half way
  if (!fEntry->fTempFile.exists()) makeTempCopy();
  fEntry->fTempFile.reopened();
  fInTemp = true;
  adoptTempFile();
  this->fFilePos = fPos;
}

template <class Context>
void ZipPkgStreamBuf<Context>::makeTempCopy() {
  auto& temp = fEntry->fTempFile;
  temp.create(ZipPkgFile<Context>::Filling);
  const auto source = fEntry->open(std::ios_base::in, false);
  char block[4096];
  for (;;) {
    source->read(block, sizeof block);
    const std::streamsize count = source->gcount();
    if (count == 0) break;
    temp.reopened()->write(block, static_cast<int>(count));
  }
  temp.reopened()->flush();
  temp.setState(ZipPkgFile<Context>::Counted);
}

}  // namespace pkg::zip
