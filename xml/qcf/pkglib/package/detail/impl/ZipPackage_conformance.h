#pragma once

#include "package/detail/ZipPackage.h"
#include "package/detail/ZipPkgEntryIterator.h"

namespace pkg::zip {

// Bits of the conformance policy.
constexpr std::int32_t kKeepConforming = 1;
constexpr std::int32_t kRefuseViolation = 2;

template <class Context>
bool ZipPackage<Context>::isConforming() const {
  return (this->getPolicy(IPkgPolicies::PolicyConformance) & kKeepConforming) != 0;
}

template <class Context>
std::int32_t ZipPackage<Context>::checkConformance() {
  this->requireOpen();
  return fConformance;
}

template <class Context>
void ZipPackage<Context>::applyMimetypeRules() {
  const std::int32_t policy = this->getPolicy(IPkgPolicies::PolicyConformance);
  const String name = Context::fromUTF8(kMimetypeName);
  if (this->entryExists(name) != PkgEntryFile) {
    if ((policy & kRefuseViolation) != 0) throw PackageException<>(PkgLib_Err_MissingMimetype);
    if ((policy & kKeepConforming) != 0) fMimetypeFirst = true;
    fConformance = PkgLib_Err_MissingMimetype;
    return;
  }
  const SPRefType<IPkgFile<Context>> file = this->getFile(name, true);
  if (isValidMimetype(file)) {
    fMimetypeSeen = true;
    return;
  }
  if ((policy & kRefuseViolation) != 0) throw PackageException<>(PkgLib_Err_InvalidMimetype);
  if ((policy & kKeepConforming) != 0) repairMimetype(file);
  fConformance = PkgLib_Err_InvalidMimetype;
}

// Stored at the very start of the file. Nothing else is looked at.
template <class Context>
bool ZipPackage<Context>::isValidMimetype(const SPRefType<IPkgFile<Context>>& file) const {
  const auto* const entry = dynamic_cast<const ZipPkgFile<Context>*>(file.get());
  const CentralDirHeader& header = entry->fReadCentral->fHeader;
  return header.method == CompressionStored && header.localOffsetLow == 0 &&
         header.localOffsetHigh == 0 && entry->fReadLocal &&
         entry->fReadLocal->method == CompressionStored;
}

// Puts a new, stored entry with the same type in the place of the invalid one, in memory: the next
// full update writes it first. The old data stays in the old file.
template <class Context>
void ZipPackage<Context>::repairMimetype(const SPRefType<IPkgFile<Context>>& file) {
  const String name = Context::fromUTF8(kMimetypeName);
  const String type = readToken(*file);
  const auto* const entry = dynamic_cast<const ZipPkgFile<Context>*>(file.get());
  if (fCentralDir->find(kMimetypeName) != entry->fReadCentral) {
    throw PackageException<>(PkgLib_Err_IllegalState);
  }
  fEntries.erase(name);
  deleteCDirEntry(kMimetypeName);
  this->setMIMEType(type);
  fMimetypeFirst = true;
}

// The first word of a file.
template <class Context>
typename Context::String ZipPackage<Context>::readToken(IPkgFile<Context>& file) {
  const auto stream = file.open(std::ios_base::in, false);
  // No type is nearly as long; damaged or hostile data may be one word without an end.
  constexpr std::streamsize kLongestToken = 65536;
  std::string token;
  stream->width(kLongestToken);
  *stream >> token;
  return Context::fromUTF8(token.c_str());
}

template <class Context>
typename Context::String ZipPackage<Context>::getMIMEType() {
  this->requireOpen();
  const String name = Context::fromUTF8(kMimetypeName);
  if (this->entryExists(name) != PkgEntryFile) return {};
  return readToken(*this->getFile(name, true));
}

template <class Context>
void ZipPackage<Context>::setMIMEType(const String& type) {
  this->requireOpen();
  const SPRefType<IPkgFile<Context>> file = this->getFile(Context::fromUTF8(kMimetypeName), false);
  file->setCompressionMethod(CompressionStored);
  const auto stream = file->open(std::ios_base::out, false);
  stream->exceptions(std::ios_base::badbit);
  *stream << Context::toUTF8(type).get();
  stream->close();
}

// In a package without content, the first file that is asked for has to be "mimetype".
template <class Context>
void ZipPackage<Context>::requireMimetypeFirst(const String& key, bool mustExist) {
  const bool isMimetype = key == Context::fromUTF8(kMimetypeName);
  bool isFirst = false;
  if (fInUpdate) {
    // The root alone, and nothing that an update in place has kept.
    isFirst = fEntries.size() == 1 && fOutCentralDir->fEntries.empty();
  } else if (fConformance == PkgLib_Err_MissingMimetype) {
    if (!isMimetype || mustExist) throw PackageException<>(PkgLib_Err_ConformanceViolation);
    fConformance = PkgLib_Err_None;
    return;
  } else {
    isFirst = !ZipPkgEntryIteratorImpl(this, Directory(), String()).isValid();
  }
  if (isFirst && !isMimetype) throw PackageException<>(PkgLib_Err_ConformanceViolation);
}

}  // namespace pkg::zip
