#pragma once

#include <cstdint>
#include <ios>
#include <istream>

#include <boost/shared_ptr.hpp>

#include "package/detail/AppContext.h"
#include "package/detail/SPRefType.h"
#include "package/detail/Visibility.h"
#include "package/source/PackageException.h"

// The contracts of the package library: files, entries, streams, packages. Units throughout: sizes
// and offsets in bytes; text in UTF-8. Paths inside a package use "/" and have no leading "/"; a
// path that ends in "/" is a directory. Open modes are std::ios_base::openmode bits. Failures are
// the numbered exceptions of PackageException.h, never return codes; "raises N" below names the
// number. A package, its entries and its streams belong to one thread at a time.

namespace pkg {

template <class Context = AppContext>
class IPackage;
template <class Context = AppContext>
class IPkgDirectory;
template <class Context = AppContext>
class IPkgFile;
template <class Context = AppContext>
class IPkgFileSystem;

// How an entry's data is stored. The values are those of the ZIP method field.
enum CompressionMethod : std::int32_t {
  CompressionDefault = -1,  // no method chosen: an entry takes deflate
  CompressionStored = 0,
  CompressionDeflated = 8
};

enum PkgEntryType : std::int32_t {
  PkgEntryNone = 0,  // no such entry: an answer of entryExists, never the type of an entry
  PkgEntryFile = 1,
  PkgEntryDirectory = 2
};

// Properties of a package or of an entry. Values travel as strings.
enum QCFPropertyName : std::int32_t {
  // Kept in the ZIP records; need neither a parser nor an update.
  QCFPropertyZipDate = 0,  // an entry's DOS date: 4 hexadecimal digits, low byte first
  QCFPropertyZipTime = 1,  // an entry's DOS time, in the same form
  QCFPropertyZipTypeCreator =
      2,  // file type and creator: 16 hexadecimal digits, bytes in file order
  QCFPropertyPackageComment = 1000,  // the package's comment, at most 65534 bytes
  // Kept in the properties document; need an IXMLParser and, to be set, a running update.
  QCFPropertyDateTime = 2000,
  QCFPropertyMacType = 2001,
  QCFPropertyMacCreator = 2002
};

// A client's answers to the library's questions. Implemented by the client, who owns it and keeps
// it alive for as long as any package that was given it. Without one, every answer is 0.
class QCF_API IPkgPolicies {
public:
  enum Policies : std::int32_t {
    // 2: every written entry gets a data descriptor; 3: none does; else: only on output that cannot
    // seek.
    PolicyDataDescriptor = 0,
    // 0 or 4: on output that cannot seek, the expected CRC goes into the local header; 5: the CRC
    // of a written entry is recorded as 0.
    PolicyCRC = 1,
    // A bit set. 1: keep the package conforming, and repair its "mimetype" entry when it is opened;
    // 2: refuse to open a package whose "mimetype" entry is missing or invalid (tested first).
    PolicyConformance = 100
  };

  virtual ~IPkgPolicies() = default;
  virtual std::int32_t getPolicy(Policies policy) const = 0;
};

// Files.

// An open file. Errors of the operating system are raised as PackageIOException 50 with the
// system's text.
class QCF_API IPkgFSFileCommon {
public:
  enum Capabilities : std::uint32_t { CapabilitySeek = 1u << 2 };

  virtual ~IPkgFSFileCommon() = default;
  // The mode that the file was opened with, every bit of it.
  virtual std::ios_base::openmode getMode() const = 0;
  // Ends the use of the file. Not to be called again once it has succeeded.
  virtual void close() = 0;
  // Reads at most `size` bytes at the current position; returns how many came. Fewer than asked for
  // is no error: 0 means the end of the file.
  virtual int read(void* buffer, int size) = 0;
  // Writes all `size` bytes at the current position, or raises.
  virtual void write(const void* buffer, int size) = 0;
  // `whence` is SEEK_SET, SEEK_CUR or SEEK_END.
  virtual void seek(long long offset, int whence) = 0;
  virtual long long tell() = 0;
  virtual void flush() = 0;
  // Sets the length of the file. Neither flushes before nor moves the position.
  virtual void truncate(long long size) = 0;
  // A bit set of Capabilities; the bits without a name mean nothing to the library.
  virtual std::uint32_t getCapabilities() = 0;
  virtual bool isSeekable();
};

// The name of a file in a file system. Nothing is checked or touched by making one.
template <class Context = AppContext>
class QCF_API IPkgFSFileName {
public:
  virtual ~IPkgFSFileName() = default;
  // The file system that made the name, not owned. Null where the factory's default is to be taken.
  virtual IPkgFileSystem<Context>* getFileSystem() const = 0;
  virtual typename Context::String getName() const = 0;
};

// An open file that knows its name.
template <class Context = AppContext>
class QCF_API IPkgFSFile : public IPkgFSFileCommon {
public:
  // Not owned; outlives the file.
  virtual IPkgFileSystem<Context>* getFileSystem() const = 0;
  virtual boost::shared_ptr<IPkgFSFileName<Context>> getName() const = 0;
};

// Where files come from: the library's only way to the disk. A client may supply its own; it owns
// it and keeps it alive for as long as any file or package made through it.
template <class Context>
class QCF_API IPkgFileSystem {
public:
  // Opens a file: `in` reads an existing file, `out` (with or without `trunc`) empties or creates
  // one for writing, `in | out` changes an existing file, `in | out | trunc` empties or creates one
  // for both. `ate` and `binary` make no difference. Raises PackageIOException 23 for any other
  // mode, 50 when the system refuses.
  virtual boost::shared_ptr<IPkgFSFile<Context>> openFile(
      const boost::shared_ptr<IPkgFSFileName<Context>>& name, std::ios_base::openmode mode) = 0;
  // Makes a new, empty file, open for reading and writing. It lives until deleteTempFileByName.
  // Raises PackageIOException 48 when there is no place or no free name, 50 when the system
  // refuses.
  virtual boost::shared_ptr<IPkgFSFile<Context>> createTempFile() = 0;
  // Opens a temporary file again that was closed. Raises as openFile.
  virtual boost::shared_ptr<IPkgFSFile<Context>> reopenTempFileByName(
      const boost::shared_ptr<IPkgFSFileName<Context>>& name, std::ios_base::openmode mode) = 0;
  // Removes a temporary file. A file that is not there, or that stays, is not reported.
  virtual void deleteTempFileByName(const boost::shared_ptr<IPkgFSFileName<Context>>& name) = 0;
  virtual boost::shared_ptr<IPkgFSFileName<Context>> getFSFileName(
      const typename Context::String& name) = 0;
  virtual ~IPkgFileSystem() = default;
};

// Entries.

// A file or a directory inside a package. Held through SPRefType; must not be used after its
// package is gone.
template <class Context = AppContext>
class QCF_API IPkgEntry {
public:
  // Takes the entry out of the package at its next save. The object stays usable, and writing to it
  // brings the entry back. Raises 45 for "mimetype" under conformance value 1.
  virtual void remove() = 0;
  virtual bool isDeleted() const = 0;
  // Whether the entry has changes, made outside an update, that no update has taken up.
  virtual bool isModified() const = 0;
  // How the next stream opened for writing stores the entry. Raises 22 unless stored or deflated is
  // asked for.
  virtual void setCompressionMethod(CompressionMethod method) = 0;
  virtual CompressionMethod getCompressionMethod() const = 0;
  // The path inside the package.
  virtual typename Context::String getName() const = 0;
  // Always null.
  virtual IPkgDirectory<Context>* getParent() const = 0;
  // The package, which owns nothing of this handle and must outlive its use.
  virtual IPackage<Context>* getPackage() const = 0;
  // The entry's own count, which SPRefType drives: release() deletes the entry when it reaches
  // zero.
  virtual void addRef() = 0;
  virtual void release() = 0;
  virtual PkgEntryType getEntryType() const = 0;
  // A handle of this entry as what it is. Raises 23 when it is the other kind.
  virtual SPRefType<IPkgFile<Context>> toFile() = 0;
  virtual SPRefType<IPkgDirectory<Context>> toDirectory() = 0;
  virtual ~IPkgEntry() = default;
};

// The bytes of a file entry, as an iostream that either reads or writes. Errors inside a transfer
// set badbit, as for any stream; a client that wants the numbered exception calls
// exceptions(std::ios::badbit) first.
template <class Context = AppContext>
class QCF_API IPkgStream
    : public std::basic_iostream<typename Context::CharType, typename Context::TraitsType> {
public:
  ~IPkgStream() override = default;
  // Ends the stream and, for a written entry, completes it: raises what went wrong. Further calls
  // do nothing. The destructor closes too, but swallows failures.
  virtual void close() = 0;
  // The entry, not owned; null once that has gone or the package has let go of the stream.
  virtual IPkgFile<Context>* getFile() = 0;

protected:
  using Stream = std::basic_iostream<typename Context::CharType, typename Context::TraitsType>;
  IPkgStream() : Stream(nullptr) {}
};

// A file inside a package.
template <class Context>
class QCF_API IPkgFile : public virtual IPkgEntry<Context> {
public:
  using String = typename Context::String;

  ~IPkgFile() override = default;
  // Opens a stream: `in` reads; `out` replaces the whole content, straight into the output file if
  // an update runs and no other entry is being written, else through a temporary file. With `raw`
  // the stored bytes are moved as they are, neither inflated nor deflated; a written raw entry
  // needs setExpectedSize and setExpectedCRC32 first. Raises 22 for neither `in` nor `out`, 19 for
  // both, 21 when there is no data to read, 26 when the package was opened for writing only, 45
  // when the conformance policy forbids it, and what the files raise.
  virtual boost::shared_ptr<IPkgStream<Context>> open(std::ios_base::openmode mode, bool raw) = 0;
  // Uncompressed and compressed size, cut to 32 bits.
  virtual std::uint32_t getSize() const = 0;
  virtual std::uint32_t getCompressedSize() const = 0;
  // The recorded uncompressed size or, where that is 0 or there is none, the expected size.
  virtual std::int64_t getSize64() const = 0;
  // The recorded compressed size; 0 where there is none.
  virtual std::int64_t getCompressedSize64() const = 0;
  // Announces what will be written, for output that cannot seek and for raw streams.
  virtual void setExpectedSize(long long size) = 0;
  // The recorded CRC-32 of the uncompressed data or, where that is 0 or there is none, the expected
  // one.
  virtual std::uint32_t getCRC32() = 0;
  virtual void setExpectedCRC32(unsigned int crc) = 0;
  // The absolute path, with leading "/", that a reference found in this file's content means. A
  // reference with a scheme and one that begins with "//" come back unchanged.
  virtual String resolvePath(const String& path) = 0;
  // A property of this entry; empty where it has none. Raises 22 for a name that an entry cannot
  // have, 23 for a generic property without a parser.
  virtual String getProperty(QCFPropertyName name) = 0;
  // Raises as getProperty; also 28 for a generic property outside an update, and 23 for a ZIP
  // property once the entry has been opened for writing.
  virtual void setProperty(QCFPropertyName name, const String& value) = 0;
};

// A directory inside a package.
template <class Context>
class QCF_API IPkgDirectory : public virtual IPkgEntry<Context> {
public:
  ~IPkgDirectory() override = default;
  // Gives the directory a record of its own. Raises 25 when it has one.
  virtual void create() = 0;
};

// A walk over the entries of a package. Owned by the boost::shared_ptr that IPackage::initIterator
// makes; must not outlive the package, nor be used across endUpdate, saveAs or a removal.
template <class Context = AppContext>
class QCF_API IPkgEntryIteratorImpl {
public:
  // The entry at the position; only while isValid().
  virtual SPRefType<IPkgEntry<Context>> dereference() const = 0;
  // Moves to the next entry; only while isValid(). Raises what a damaged local header raises.
  virtual void increment() = 0;
  virtual bool isValid() const = 0;

protected:
  ~IPkgEntryIteratorImpl() = default;
};

// Packages.

// A package. Every operation but getPolicies, getPolicy and doUNSAFEUpdateInPlace raises 24 once
// the package is closed.
template <class Context>
class QCF_API IPackage {
public:
  using String = typename Context::String;
  using openmode = std::ios_base::openmode;
  using FileName = boost::shared_ptr<IPkgFSFileName<Context>>;
  using Directory = SPRefType<IPkgDirectory<Context>>;

  virtual ~IPackage() = default;

  // The mode of the package file as it stands or, with `current` false, as it will be after the
  // running update. The latter has no meaning before the first update.
  virtual openmode getOpenMode(bool current) const = 0;
  // The method of new file entries. Not checked here.
  virtual void setDefaultCompressionMethod(CompressionMethod method) = 0;
  virtual CompressionMethod getDefaultCompressionMethod() const = 0;
  // Whether the package has changes, made outside an update, that no update has taken up.
  virtual bool isModified() const = 0;

  // Starts an update of the package file itself. Only what is written in it is listed afterwards:
  // the way for a package without old entries. Raises 35 when an update runs.
  virtual void beginUpdate() = 0;
  // Starts an update into another file, which takes the unchanged entries along. Raises 35 when an
  // update runs, 36 when `mode` lacks `out`, 47 when a repaired package has lost its "mimetype"
  // entry. When copying fails, the update runs on: cancelUpdate ends it.
  virtual void beginUpdate(const String& name, openmode mode) = 0;
  virtual void beginUpdate(const FileName& name, openmode mode) = 0;
  // Appends the changes to the package file and writes its directory anew. Checks nothing: the
  // package must be open, writable and not in an update. A failure on the way leaves a file without
  // a directory.
  virtual void doUNSAFEUpdateInPlace() = 0;
  // Completes the running update: the package now lives in the output file. Raises 37 when no
  // update runs.
  virtual void endUpdate() = 0;
  // Gives the running update up. Nothing that was written is taken back. Raises 37 when no update
  // runs.
  virtual void cancelUpdate() = 0;
  // beginUpdate(name, mode), then endUpdate(). The name must not be that of the package file
  // itself.
  virtual void saveAs(const String& name, openmode mode) = 0;
  virtual void saveAs(const FileName& name, openmode mode) = 0;

  // Closes every stream and the package file, and drops what is not saved. Raises 24 on a closed
  // package.
  virtual void close() = 0;
  virtual void closeWithoutSave() = 0;

  // What stands at a path. The forms with a directory take the path relative to it, unless it
  // begins with "/". Raises 22 for an empty path.
  virtual PkgEntryType entryExists(const String& path) = 0;
  virtual PkgEntryType entryExists(const String& path, const Directory& dir) = 0;
  // The file at a path; without `mustExist` a new one where there is none, which nothing is written
  // of before it is opened for writing. A path always gives the same object. Raises 21 when there
  // is none and `mustExist` asks for one, 22 for a directory's path, 23 when the path is known as a
  // directory, 45 under conformance value 1 when "mimetype" must come first, and what a damaged
  // local header raises.
  virtual SPRefType<IPkgFile<Context>> getFile(const String& path, bool mustExist) = 0;
  virtual SPRefType<IPkgFile<Context>> getFile(const String& path, const Directory& dir,
                                               bool mustExist) = 0;
  // The directory at a path, which needs no trailing "/". Raises as getFile, but never 45.
  virtual Directory getDirectory(const String& path, bool mustExist) = 0;
  virtual Directory getDirectory(const String& path, const Directory& dir, bool mustExist) = 0;
  virtual Directory getRootDirectory() const = 0;

  virtual String getName() const = 0;
  virtual boost::shared_ptr<IPkgFSFile<Context>> getFSFile() const = 0;

  // The text of the "mimetype" entry: its type. getMIMEType returns it up to the first white space,
  // or an empty string where there is no such entry; setMIMEType writes the entry, stored. Under
  // conformance value 1 the latter raises 45 when the entry of this package exists already.
  virtual void setMIMEType(const String& type) = 0;
  virtual String getMIMEType() = 0;
  // A property of the package: the comment only. Raises 22 or 23 for any other name, and 22 for a
  // value that is too long.
  virtual String getProperty(QCFPropertyName name) = 0;
  virtual void setProperty(QCFPropertyName name, const String& value) = 0;
  // The client's object, possibly null.
  virtual const IPkgPolicies* getPolicies() = 0;
  // What opening found: 0, or 46 for an invalid and 47 for a missing "mimetype" entry. Checks
  // nothing now.
  virtual std::int32_t checkConformance() = 0;
  virtual std::int32_t getPolicy(IPkgPolicies::Policies policy) const = 0;

  // Makes an iterator over the children of `dir`, implied directories included, or over every entry
  // where `dir` is null. Entries made in a running update are not walked. `pattern` must be empty:
  // otherwise 19 is raised, with `iterator` set all the same.
  virtual void initIterator(boost::shared_ptr<IPkgEntryIteratorImpl<Context>>& iterator,
                            const Directory& dir, const String& pattern) = 0;
};

}  // namespace pkg
