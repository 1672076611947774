#pragma once

#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

#include "package/detail/PkgFileSys.h"

namespace pkg {

template <class Context>
BasePkgFSFile<Context>::~BasePkgFSFile() {
  if (fIsOpen && fStream != nullptr) std::fclose(fStream);
}

template <class Context>
std::FILE* BasePkgFSFile<Context>::stream() const {
  if (fStream == nullptr) throwSystemError(EBADF);
  return fStream;
}

// fclose frees its stream even when it fails. What it would fail at is flushed before, so that
// after such a failure the stream is still there for the destructor.
template <class Context>
void BasePkgFSFile<Context>::close() {
  std::FILE* const flushed = stream();
  if ((fMode & std::ios_base::out) != 0) emptyBuffer();
  fStream = nullptr;
  if (std::fclose(flushed) != 0) throwSystemError(errno);
  fIsOpen = false;
}

// glibc serves a large read from what it holds, and the rest with two calls of the system: for
// whole blocks one is enough when it holds nothing.
template <class Context>
int BasePkgFSFile<Context>::read(void* buffer, int size) {
  constexpr int kBlock = 4096;  // of that buffer
  constexpr int kLarge = 4 * kBlock;
  turnTo(Transfer::Read);
  const bool whole = size % kBlock == 0;
  if (fReadAhead && whole && size >= kLarge) emptyBuffer();
  fReadAhead = fReadAhead || !whole;
  const std::size_t count = std::fread(buffer, 1, static_cast<std::size_t>(size), stream());
  if (count == 0 && std::ferror(fStream)) throwSystemError(errno);
  return static_cast<int>(count);
}

template <class Context>
void BasePkgFSFile<Context>::write(const void* buffer, int size) {
  turnTo(Transfer::Write);
  const std::size_t count = std::fwrite(buffer, 1, static_cast<std::size_t>(size), stream());
  if (std::ferror(fStream)) throwSystemError(errno);
  if (count != static_cast<std::size_t>(size)) throw PackageIOException<>(PkgLib_Err_WritingFile);
}

// A seek to where the stream stands is spared: it would write out, or read once more, what the C
// library holds. It is needed after an end or an error, which the C library remembers until then.
// Else glibc reads the block before its target, unless nothing is buffered and the seek is
// relative.
template <class Context>
void BasePkgFSFile<Context>::seek(long long offset, int whence) {
  const long long here = ftello(stream());
  const bool stands = here >= 0 && here == offset && !std::feof(fStream) && !std::ferror(fStream);
  fSeekSpared = whence == SEEK_SET && stands;
  if (fSeekSpared) return;
  if (whence == SEEK_SET && here >= 0 && offset >= 0) {
    offset -= here;
    whence = SEEK_CUR;
  }
  if (whence == SEEK_END && here >= 0 && fLast == Transfer::Write) {
    emptyBuffer();  // which the size does not count
    if (struct stat status{}; fstat(fileno(fStream), &status) == 0 && S_ISREG(status.st_mode)) {
      offset += status.st_size - here;
      whence = SEEK_CUR;
    }
  }
  if (whence == SEEK_CUR && !mayHold(offset)) emptyBuffer();
  if (fseeko(fStream, static_cast<off_t>(offset), whence) != 0) throwSystemError(errno);
  fLast = Transfer::None;
}

// Whether bytes so far away may be among those that were read ahead.
template <class Context>
bool BasePkgFSFile<Context>::mayHold(long long distance) const {
  return fLast == Transfer::Read && distance > -BUFSIZ && distance < BUFSIZ;
}

// Writes out what was written, and forgets what was read ahead. Some systems fail at that with a
// stream that only reads; the seek or read behind it is none the worse.
template <class Context>
void BasePkgFSFile<Context>::emptyBuffer() {
  const bool writes = (fMode & std::ios_base::out) != 0;
  if (std::fflush(stream()) != 0 && writes) throwSystemError(errno);
  fReadAhead = false;
}

// The C library wants a seek between reading and writing: a spared one is made up for.
template <class Context>
void BasePkgFSFile<Context>::turnTo(Transfer next) {
  const bool turns = fLast != Transfer::None && fLast != next;
  if (fSeekSpared && turns && fseeko(stream(), 0, SEEK_CUR) != 0) throwSystemError(errno);
  fSeekSpared = false;
  fLast = next;
}

template <class Context>
long long BasePkgFSFile<Context>::tell() {
  const off_t position = ftello(stream());
  if (position < 0) throwSystemError(errno);
  return position;
}

template <class Context>
void BasePkgFSFile<Context>::flush() {
  if (std::fflush(stream()) == -1) throwSystemError(errno);
}

template <class Context>
void BasePkgFSFile<Context>::truncate(long long size) {
  if (ftruncate(fileno(stream()), static_cast<off_t>(size)) != 0) throwSystemError(errno);
}

}  // namespace pkg
