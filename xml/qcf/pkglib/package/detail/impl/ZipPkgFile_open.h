#pragma once

#include <boost/shared_ptr.hpp>

#include "package/detail/ZipPackage.h"
#include "package/detail/ZipPkgFile.h"
#include "package/detail/ZipPkgStream.h"

namespace pkg::zip {

template <class Context>
boost::shared_ptr<IPkgStream<Context>> ZipPkgFile<Context>::open(std::ios_base::openmode mode,
                                                                 bool raw) {
  using std::ios_base;
  if ((mode & (ios_base::in | ios_base::out)) == 0) {
    throw PackageException<>(PkgLib_Err_BadArgument);
  }
  this->zipPackage()->requireOpen();
  std::unique_ptr<ZipPkgStream<Context>> stream =
      (mode & ios_base::out) == 0 ? openForReading(mode, raw) : openForWriting(mode, raw);
  fStreams.push_back(stream.get());
  return boost::shared_ptr<IPkgStream<Context>>(stream.release());
}

template <class Context>
std::unique_ptr<ZipPkgStream<Context>> ZipPkgFile<Context>::openForReading(
    std::ios_base::openmode mode, bool raw) {
  if ((this->zipPackage()->fOpenMode & std::ios_base::in) == 0 && !fTempFile.exists()) {
    throw PackageException<>(PkgLib_Err_PackageWriteOnly);
  }
  if (!this->fReadCentral && !fTempFile.exists()) {
    throw PackageException<>(PkgLib_Err_EntryNotFound);
  }
  return std::make_unique<ZipPkgStream<Context>>(this, mode, raw);
}

template <class Context>
std::unique_ptr<ZipPkgStream<Context>> ZipPkgFile<Context>::openForWriting(
    std::ios_base::openmode mode, bool raw) {
  if ((mode & std::ios_base::in) != 0) throw PackageException<>(PkgLib_Err_NotImplemented);
  requireConformingWrite();
  if (!this->fReadCentral || this->fDeleted) this->fDeleted = false;

  ZipPackage<Context>* const package = this->zipPackage();
  std::unique_ptr<ZipPkgStream<Context>> stream =
      package->fInUpdate && package->fCurrentWriter == nullptr ? openDirect(mode, raw)
                                                               : openSpool(mode);
  fHasData = true;
  if (isMimetype()) package->fMimetypeSeen = true;
  return stream;
}

// Under the policy, "mimetype" is written stored, and once in each generation of the file.
template <class Context>
void ZipPkgFile<Context>::requireConformingWrite() const {
  const ZipPackage<Context>* const package = this->zipPackage();
  if (!package->isConforming() || !isMimetype()) return;
  if (this->fMethod != CompressionStored || package->fMimetypeSeen) {
    throw PackageException<>(PkgLib_Err_ConformanceViolation);
  }
}

// Straight into the output file of the update.
template <class Context>
std::unique_ptr<ZipPkgStream<Context>> ZipPkgFile<Context>::openDirect(std::ios_base::openmode mode,
                                                                       bool raw) {
  this->leaveQueue();
  this->createZipData(raw);
  auto stream = std::make_unique<ZipPkgStream<Context>>(this, mode, raw);
  this->zipPackage()->fCurrentWriter = this;
  this->zipPackage()->fOutputWritten = true;
  return stream;
}

// Into the temporary file, to be copied at the next save or at the end of this update.
template <class Context>
std::unique_ptr<ZipPkgStream<Context>> ZipPkgFile<Context>::openSpool(
    std::ios_base::openmode mode) {
  this->markChanged();
  if (!fTempFile.counts()) fTempFile.discard();  // a copy for seeking that stopped half way
  if (fTempFile.exists()) {
    fTempFile.reopened()->truncate(0);
  } else {
    fTempFile.create(Counted);
  }
  return std::make_unique<ZipPkgStream<Context>>(this, mode, false);
}

template <class Context>
void ZipPkgFile<Context>::write() {
  const bool raw = !this->isModified() && !this->fQueued;
  const auto out = open(std::ios_base::out, raw);
  if (this->fReadCentral || fTempFile.exists()) {
    const auto in = open(std::ios_base::in, raw);
    copyData(*in, *out);
    fTempFile.discard();
  }
  this->fQueued = false;
  out->close();
}

template <class Context>
void ZipPkgFile<Context>::copyData(IPkgStream<Context>& from, IPkgStream<Context>& to) {
  constexpr std::streamsize kCopyBlock = 16384;
  char block[kCopyBlock];
  for (;;) {
    from.read(block, kCopyBlock);
    const std::streamsize count = from.gcount();
    if (count == 0) return;
    to.write(block, count);
    if (!to.fail()) continue;
    try {
      to.close();
    } catch (...) {  // the failure to write is what the caller is told
    }
    throw PackageIOException<>(PkgLib_Err_WritingFile);
  }
}

template <class Context>
void ZipPkgFile<Context>::streamClosed(ZipPkgStream<Context>* stream) {
  try {
    if (stream->writes() && this->fWriteCentral && !stream->isOrphan())
      settleWrittenHeaders(*stream);
    fTempFile.close();
  } catch (...) {
    fStreams.remove(stream);
    throw;
  }
  fStreams.remove(stream);
}

// Brings the headers in the output file up to what was written.
template <class Context>
void ZipPkgFile<Context>::settleWrittenHeaders(const ZipPkgStream<Context>& stream) {
  constexpr std::int32_t kNoCRC = 5;
  ZipPackage<Context>* const package = this->zipPackage();
  IPkgFSFileCommon* const out = package->fOutFile.get();
  ZpLocalFileEntry<Context>& local = *this->fWriteLocal;
  package->fCurrentWriter = nullptr;
  if (package->getPolicy(IPkgPolicies::PolicyCRC) == kNoCRC) this->fWriteCentral->fHeader.crc32 = 0;
  const bool outOfDate = local.updateFromCDEntry(!out->isSeekable(), *this->fWriteCentral);
  if (local.hasDescriptor()) {
    // Right behind the data, wherever reading has moved the file meanwhile.
    if (stream.isDirect() && out->isSeekable()) out->seek(stream.dataEnd(), SEEK_SET);
    local.writeDescriptor(out);
  }
  if (outOfDate && out->isSeekable()) local.patch(out, this->fWriteCentral->fLocalOffset);
}

// Closing a stream takes its node out of the list.
template <class Context>
void ZipPkgFile<Context>::closeStreams() {
  for (auto node = fStreams.begin(); node != fStreams.end();) {
    ZipPkgStream<Context>* const stream = *node++;
    stream->close();
  }
}

}  // namespace pkg::zip
