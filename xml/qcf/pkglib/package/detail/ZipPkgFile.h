#pragma once

#include <cstdint>
#include <list>

#include "package/detail/ZipPkgEntry.h"

namespace pkg::zip {

template <class Context = AppContext>
class ZipPkgStream;
template <class Context = AppContext>
class ZipPkgStreamBuf;

// The entry that tells the type of a package.
constexpr char kMimetypeName[] = "mimetype";

// A file entry.
template <class Context = AppContext>
class QCF_API ZipPkgFile : public ZipPkgEntry<Context>, public virtual BasePkgFile<Context> {
public:
  using String = typename Context::String;

  ZipPkgFile(const String& name, bool mustExist, ZipPackage<Context>* package);
  ZipPkgFile(const typename ZipPkgEntry<Context>::Record& record, ZipPackage<Context>* package);
  // Deletes the temporary file. Its streams should be closed by then: one that is not is cut off.
  ~ZipPkgFile() override;

  boost::shared_ptr<IPkgStream<Context>> open(std::ios_base::openmode mode, bool raw) override;
  std::uint32_t getSize() const override;
  std::uint32_t getCompressedSize() const override;
  std::int64_t getSize64() const override;
  std::int64_t getCompressedSize64() const override;
  void setExpectedSize(long long size) override { this->fExpectedSize = size; }
  std::uint32_t getCRC32() override;
  void setExpectedCRC32(unsigned int crc) override { this->fExpectedCRC = crc; }
  String resolvePath(const String& path) override;
  String getProperty(QCFPropertyName name) override;
  void setProperty(QCFPropertyName name, const String& value) override;

  void remove() override;
  // Copies the entry into the output file: the stored bytes as they are when it is unchanged.
  // Raises PackageIOException 29 when the output fails.
  void write() override;
  SPRefType<IPkgFile<Context>> toFile() override;
  SPRefType<IPkgDirectory<Context>> toDirectory() override;

  // Called by a stream of this entry that closes: settles the headers of a direct one, and takes it
  // off the list.
  void streamClosed(ZipPkgStream<Context>* stream);

private:
  friend class ZipPackage<Context>;
  friend class ZipPkgStreamBuf<Context>;

  enum HiddenState : std::uint32_t {
    Counted = 0,  // the file is the entry's data
    Filling = 1   // a read stream is filling it: no other stream counts it
  };

  // The entry's temporary file. It exists while it has a name; the file may be closed meanwhile.
  class MyTempFile {
  public:
    using File = boost::shared_ptr<IPkgFSFile<Context>>;
    using FileName = boost::shared_ptr<IPkgFSFileName<Context>>;

    explicit MyTempFile(ZipPackage<Context>* package) : fPackage(package) {}
    ~MyTempFile();
    MyTempFile(const MyTempFile&) = delete;
    MyTempFile& operator=(const MyTempFile&) = delete;

    // Makes a new file. None must exist.
    void create(HiddenState state);
    bool exists() const { return fHeld != nullptr; }
    bool counts() const { return exists() && fHeld->state == Counted; }
    void setState(HiddenState state) { fHeld->state = state; }
    // The file, open for reading and writing: opened again where it was closed.
    const File& reopened();
    // Closes what is open; the name stays.
    void close();
    // Closes and deletes the file.
    void discard();

  private:
    struct Held {
      FileName name;
      File file;  // null while it is closed
      HiddenState state = Counted;
    };

    ZipPackage<Context>* fPackage;  // not owned
    std::unique_ptr<Held> fHeld;    // most entries never have a file
  };
  using Streams = std::list<ZipPkgStream<Context>*,
                            ZipAllocator<ZipPkgStream<Context>*, typename Context::AllocPolicy>>;

  std::unique_ptr<ZipPkgStream<Context>> openForReading(std::ios_base::openmode mode, bool raw);
  std::unique_ptr<ZipPkgStream<Context>> openForWriting(std::ios_base::openmode mode, bool raw);
  std::unique_ptr<ZipPkgStream<Context>> openDirect(std::ios_base::openmode mode, bool raw);
  std::unique_ptr<ZipPkgStream<Context>> openSpool(std::ios_base::openmode mode);
  bool isMimetype() const;
  void requireConformingWrite() const;
  void copyData(IPkgStream<Context>& from, IPkgStream<Context>& to);
  void settleWrittenHeaders(const ZipPkgStream<Context>& stream);
  void closeStreams();

  bool fHasData = false;
  Streams fStreams;
  MyTempFile fTempFile;
};

extern template class ZipPkgFile<AppContext>;

}  // namespace pkg::zip
