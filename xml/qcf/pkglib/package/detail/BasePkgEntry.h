#pragma once

#include <cstdint>

#include "package/Package.h"

namespace pkg {

// What an entry of any container format shares: name, kind, method, flags and the reference count.
template <class Context = AppContext>
class QCF_API BasePkgEntry : public virtual IPkgEntry<Context> {
public:
  using String = typename Context::String;

  ~BasePkgEntry() override = default;
  BasePkgEntry(const BasePkgEntry&) = delete;
  BasePkgEntry& operator=(const BasePkgEntry&) = delete;

  bool isDeleted() const override { return fDeleted; }
  bool isModified() const override { return fModified; }
  void setCompressionMethod(CompressionMethod method) override;
  CompressionMethod getCompressionMethod() const override { return fMethod; }
  String getName() const override { return fName; }
  IPkgDirectory<Context>* getParent() const override { return fParent; }
  IPackage<Context>* getPackage() const override { return fPackage; }
  void addRef() override { ++fRefCount; }
  void release() override;
  PkgEntryType getEntryType() const override { return fType; }

protected:
  // Born with a count of one, which the first handle adopts.
  BasePkgEntry(const String& name, PkgEntryType type, CompressionMethod method,
               IPackage<Context>* package);

  String fName;
  PkgEntryType fType;
  CompressionMethod fMethod;
  IPkgDirectory<Context>* fParent = nullptr;
  IPackage<Context>* fPackage;  // not owned
  bool fModified = false;
  bool fQueued = false;
  bool fDeleted = false;

private:
  std::int32_t fRefCount = 1;
};

// The generic properties of a file entry.
template <class Context = AppContext>
class QCF_API BasePkgFile : public IPkgFile<Context> {
public:
  using String = typename Context::String;

  String getProperty(QCFPropertyName name) override;
  void setProperty(QCFPropertyName name, const String& value) override;
};

template <class Context = AppContext>
class QCF_API BasePkgStream : public IPkgStream<Context> {
public:
  ~BasePkgStream() override = default;
};

template <class Context = AppContext>
class QCF_API BasePkgEntryIteratorImpl : public IPkgEntryIteratorImpl<Context> {
protected:
  explicit BasePkgEntryIteratorImpl(IPackage<Context>* package) : fPackage(package) {}
  ~BasePkgEntryIteratorImpl() = default;

  IPackage<Context>* fPackage;  // not owned
};

extern template class BasePkgEntry<AppContext>;
extern template class BasePkgFile<AppContext>;

}  // namespace pkg
