#pragma once

#include <cstdint>
#include <memory>
#include <streambuf>

#include <zlib.h>

#include "package/detail/BasePkgEntry.h"
#include "package/detail/ZipPkgFile.h"

namespace pkg::zip {

// Where a stream's bytes come from or go to, and the state of zlib on the way.
template <class Context = AppContext>
class ZipPkgStreamData {
public:
  virtual ~ZipPkgStreamData();

protected:
  static constexpr int kBlock = 4096;  // bytes of compressed data moved at a time

  ZipPkgStreamData() = default;
  ZipPkgStreamData(const ZipPkgStreamData&) = delete;
  ZipPkgStreamData& operator=(const ZipPkgStreamData&) = delete;

  // Shared, so that a stream which outlives the file's use fails in it cleanly.
  boost::shared_ptr<IPkgFSFile<Context>> fFile;
  std::int32_t fMethod = 0;     // what the stream itself applies: 0 or 8
  bool fPlain = true;           // the data is the whole of a temporary file
  std::int64_t fDataStart = 0;  // in fFile, as the next two
  std::int64_t fFilePos = 0;    // of the next transfer
  std::int64_t fFileEnd = 0;    // behind the last byte
  char fInBuf[kBlock];
  z_stream* fInflate = nullptr;  // owned
  z_stream* fDeflate = nullptr;  // owned
  std::int32_t fInflateResult = Z_OK;
  std::int32_t fDeflateResult = Z_OK;
};

// The stream buffer of one entry: it either reads or writes. There is no put area, and the get area
// holds a few bytes only: bulk transfers go between the file or zlib and the caller's memory. zlib
// is the reference for the codec (RFC 1951, raw).
template <class Context>
class ZipPkgStreamBuf
    : public std::basic_streambuf<typename Context::CharType, typename Context::TraitsType>,
      public ZipPkgStreamData<Context> {
public:
  using Traits = typename Context::TraitsType;
  using int_type = typename Traits::int_type;
  using pos_type = typename Traits::pos_type;
  using off_type = typename Traits::off_type;
  using openmode = std::ios_base::openmode;

  ZipPkgStreamBuf(ZipPkgFile<Context>* entry, openmode mode, bool raw);
  ~ZipPkgStreamBuf() override = default;

protected:
  pos_type seekoff(off_type offset, std::ios_base::seekdir direction, openmode which) override;
  pos_type seekpos(pos_type position, openmode which) override;
  std::streamsize xsgetn(char* destination, std::streamsize count) override;
  int_type underflow() override;
  std::streamsize xsputn(const char* source, std::streamsize count) override;
  int_type overflow(int_type c) override;

private:
  friend class ZipPkgStream<Context>;
  friend class ZipPkgFile<Context>;

  static constexpr int kPutback = 4;
  static constexpr int kGetData = 6;

  static void* zAlloc(void* opaque, unsigned items, unsigned size);
  static void zFree(void* opaque, void* block);

  // Construction.
  void initReading();
  void initWriting();
  void adoptTempFile();
  void startAt(std::int64_t dataStart);
  std::unique_ptr<z_stream> newZStream();
  void startInflate();
  void startDeflate();

  // Reading.
  std::streamsize fetch(char* destination, std::streamsize count);
  std::streamsize fetchDirect(char* destination, std::streamsize count);
  std::streamsize fetchInflated(char* destination, std::streamsize count);
  void refillInput();
  [[noreturn]] void failInflating();
  void keepForPutback(const char* delivered, std::streamsize count);
  void emptyGetArea(std::ptrdiff_t kept);
  void seekFile();

  // Seeking.
  std::int64_t current() const;
  pos_type moveTo(std::int64_t target);
  void maybeSwitchToTemp();
  void makeTempCopy();

  // Writing.
  std::streamsize put(const char* source, std::streamsize count);
  std::streamsize deflateBytes(const char* source, std::streamsize count);
  void deflateBlock(int flush);
  // Whether the update that a direct stream writes for has been given up: what it wrote belongs to
  // no record.
  bool isOrphan() const { return fRecord && fRecord != fEntry->fWriteCentral; }

  // Closing.
  void end();
  int endDeflate();
  void finishDeflate();
  void settleDirectEntry();

  ZipPackage<Context>* package() const { return fEntry->zipPackage(); }
  bool writes() const { return (fMode & std::ios_base::out) != 0; }
  bool inflates() const { return !this->fPlain && this->fMethod != CompressionStored; }
  char* getData() { return fGetArea + kPutback; }

  ZipPkgFile<Context>* fEntry;  // not owned
  openmode fMode;
  bool fRaw;
  bool fOpen = true;
  bool fInTemp = false;
  typename ZipPkgEntry<Context>::Record fRecord;  // of a direct stream
  char fGetArea[kPutback + kGetData];
  std::int64_t fPos = 0;   // entry bytes moved past the get area
  std::int64_t fSize = 0;  // of the stream, in entry bytes
  std::uintptr_t fZOpaque = 0;
};

// An iostream on the bytes of one entry.
template <class Context>
class QCF_API ZipPkgStream : public BasePkgStream<Context> {
public:
  // Made by ZipPkgFile::open, which also prepares what it needs.
  ZipPkgStream(ZipPkgFile<Context>* entry, std::ios_base::openmode mode, bool raw);
  ~ZipPkgStream() override;

  void close() override;
  IPkgFile<Context>* getFile() override { return fBuf.fEntry; }

private:
  friend class ZipPkgFile<Context>;

  bool isOrphan() const { return fBuf.isOrphan(); }
  bool isDirect() const { return static_cast<bool>(fBuf.fRecord); }
  std::int64_t dataEnd() const { return fBuf.fFileEnd; }
  bool writes() const { return fBuf.writes(); }
  // Cuts the stream off from an entry that goes: it is closed from now on.
  void detach();
  void dropBuffer();

  ZipPkgStreamBuf<Context> fBuf;
};

extern template class ZipPkgStreamData<AppContext>;
extern template class ZipPkgStreamBuf<AppContext>;
extern template class ZipPkgStream<AppContext>;

}  // namespace pkg::zip
