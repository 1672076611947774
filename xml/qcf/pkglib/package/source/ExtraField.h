#pragma once

#include <cstddef>
#include <cstring>

#include "package/source/ZipImpl.h"

namespace pkg::zip {

// Walks the blocks of an extra field. The walk ends where fewer than four bytes remain, or where a
// block's body reaches or passes the end.
class ExtraFieldWalk {
public:
  // `length` bytes at `field`; `available` bounds what may be read of a body that runs past the
  // length.
  ExtraFieldWalk(char* field, std::size_t length, std::size_t available)
      : fField(field), fEnd(length < available ? length : available), fAvailable(available) {}
  ExtraFieldWalk(char* field, std::size_t length) : ExtraFieldWalk(field, length, length) {}

  // Moves to the next block; false where there is none.
  bool next() {
    fPosition = fNext;
    if (fField == nullptr || fPosition >= fEnd || fEnd - fPosition < sizeof(ExtraDataHeader)) {
      return false;
    }
    ExtraDataHeader header;
    std::memcpy(static_cast<void*>(&header), fField + fPosition, sizeof header);
    fHeader = header.byteswap();
    fNext = fPosition + sizeof header + fHeader.size;
    return true;
  }

  // Where there is no next block: how many bytes are left behind the last, too few for one. They
  // begin at block().
  std::size_t rest() const { return fField != nullptr && fPosition < fEnd ? fEnd - fPosition : 0; }

  std::uint16_t id() const { return fHeader.id; }
  // What the block's header says of its body, and what of that is there.
  std::uint16_t bodySize() const { return fHeader.size; }
  std::size_t bodyAvailable() const {
    const std::size_t rest = fAvailable - fPosition - sizeof(ExtraDataHeader);
    return fHeader.size < rest ? fHeader.size : rest;
  }
  std::size_t totalSize() const { return sizeof(ExtraDataHeader) + fHeader.size; }
  // The block with its header.
  char* block() const { return fField + fPosition; }
  char* body() const { return block() + sizeof(ExtraDataHeader); }

private:
  char* fField;
  std::size_t fEnd;
  std::size_t fAvailable;
  std::size_t fPosition = 0;
  std::size_t fNext = 0;
  ExtraDataHeader fHeader;
};

}  // namespace pkg::zip
