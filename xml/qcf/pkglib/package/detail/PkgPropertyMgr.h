#pragma once

#include <cstddef>
#include <map>

#include <boost/shared_array.hpp>

#include "package/Package.h"
#include "package/detail/RecordDateTimes.h"

namespace pkg {

template <class Context = AppContext>
class BasePackage;

// The properties of a package and of its entries, by entry path and name. ZIP properties mirror
// what the records say and outrank them when they are written; generic properties persist in the
// properties document.
template <class Context = AppContext>
class QCF_API PkgPropertyMgr {
public:
  using String = typename Context::String;

  struct ValueElem {
    bool modified = false;
    String value;
  };
  using PropertyMap = std::map<String, std::map<QCFPropertyName, ValueElem>>;

  explicit PkgPropertyMgr(BasePackage<Context>* owner) : package(owner) {}
  PkgPropertyMgr(const PkgPropertyMgr&) = delete;
  PkgPropertyMgr& operator=(const PkgPropertyMgr&) = delete;

  // Sets a property of the entry at `path`. `fromDocument` tells that the properties document is
  // being read. Raises, in this order, 23 without a parser, 28 outside an update unless from the
  // document, 22 for another name than 2000 to 2002 or for the package's own path.
  void setGenericProperty(const String& path, QCFPropertyName name, const String& value,
                          bool fromDocument);
  // The value, empty where there is none. Stores whether it was changed by the client where
  // `modified` is not null and there is one. Raises 23 and 22 as above.
  String getGenericProperty(const String& path, QCFPropertyName name, bool* modified);

  // The same for what lives in the ZIP records: 0 to 2 for an entry, 1000 for any path; any other
  // raises 22.
  void setZipProperty(const String& path, QCFPropertyName name, const String& value,
                      bool fromRecord);
  String getZipProperty(const String& path, QCFPropertyName name, bool* modified);
  // Date and time of an entry's record, which are the properties of its path until others are set.
  // Raises 22 for the package's own path.
  void addRecordDateTime(const boost::shared_array<char>& name, RecordDateTimes::DateTime value);

  // Those of the last record at `path`, valid until others are added; null where there is none.
  const RecordDateTimes::DateTime* findRecordDateTime(const String& path);
  // The same by the name in the record.
  const RecordDateTimes::DateTime* findRecordDateTime(const char* name);
  // Whether date or time were set, which outrank those of the record.
  bool hasOwnDateTime(const String& path) const;

  // Reads the document where there is one and a parser. A document that breaks the structure
  // changes nothing and is read again at the next access; its failure is not reported.
  void readGenericProperties();
  // Writes the document as one more entry of the running update, or removes it when no property is
  // left.
  void writeGenericProperties();

  // The steps of a transaction.
  void beginUpdate();
  void endUpdate();
  void cancelUpdate();

  // "/", the key of the package's own properties, and the path of the document.
  static const String fPkgPath;
  static const String fPropertiesXMLFilePath;

private:
  class MyEventHandler;

  void requireGenericName(const String& path, QCFPropertyName name) const;
  void requireZipName(const String& path, QCFPropertyName name) const;
  void requireParser() const;
  // The element where it was set; null where it was not.
  const ValueElem* find(const String& path, QCFPropertyName name) const;
  std::size_t countGenericProperties() const;
  void removeDocument();

  BasePackage<Context>* package;  // not owned
  bool loaded = false;
  bool inUpdate = false;
  PropertyMap properties;
  PropertyMap savedProperties;
  RecordDateTimes recordDateTimes;  // what `properties` does not name
  std::size_t savedDateTimes = 0;   // as many of them
};

extern template class PkgPropertyMgr<AppContext>;

}  // namespace pkg
