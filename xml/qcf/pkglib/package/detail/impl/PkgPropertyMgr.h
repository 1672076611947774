#pragma once

#include <utility>

#include "package/detail/BasePackage.h"
#include "package/detail/PkgPropertyMgr.h"

namespace pkg {

template <class Context>
void PkgPropertyMgr<Context>::setGenericProperty(const String& path, QCFPropertyName name,
                                                 const String& value, bool fromDocument) {
  requireParser();
  if (!inUpdate && !fromDocument) throw PackageException<>(PkgLib_Err_NotInUpdate);
  requireGenericName(path, name);
  if (!loaded && !fromDocument) readGenericProperties();
  ValueElem element{true, value};
  properties[path][name] = std::move(element);
}

template <class Context>
typename Context::String PkgPropertyMgr<Context>::getGenericProperty(const String& path,
                                                                     QCFPropertyName name,
                                                                     bool* modified) {
  requireParser();
  requireGenericName(path, name);
  if (!loaded) readGenericProperties();
  return find(path, name, modified);
}

template <class Context>
void PkgPropertyMgr<Context>::setZipProperty(const String& path, QCFPropertyName name,
                                             const String& value, bool fromRecord) {
  requireZipName(path, name);
  ValueElem element{!fromRecord, value};
  properties[path][name] = std::move(element);
}

template <class Context>
void PkgPropertyMgr<Context>::setRecordDateTime(const String& path, const String& date,
                                                const String& time) {
  requireZipName(path, QCFPropertyZipDate);
  ValueElem dateElement{false, date};
  ValueElem timeElement{false, time};
  auto& ofPath = properties[path];
  ofPath[QCFPropertyZipDate] = std::move(dateElement);
  ofPath[QCFPropertyZipTime] = std::move(timeElement);
}

template <class Context>
typename Context::String PkgPropertyMgr<Context>::getZipProperty(const String& path,
                                                                 QCFPropertyName name,
                                                                 bool* modified) {
  requireZipName(path, name);
  return find(path, name, modified);
}

template <class Context>
void PkgPropertyMgr<Context>::requireParser() const {
  if (package->getXMLParser() == nullptr) {
    throw PackageException<>(PkgLib_Err_UnsupportedOperation);
  }
}

inline bool isZipPropertyOfEntry(QCFPropertyName name) {
  return name >= QCFPropertyZipDate && name <= QCFPropertyZipTypeCreator;
}

inline bool isGenericProperty(QCFPropertyName name) {
  return name >= QCFPropertyDateTime && name <= QCFPropertyMacCreator;
}

template <class Context>
void PkgPropertyMgr<Context>::requireGenericName(const String& path, QCFPropertyName name) const {
  if (!isGenericProperty(name) || path == fPkgPath) {
    throw PackageException<>(PkgLib_Err_BadArgument);
  }
}

template <class Context>
void PkgPropertyMgr<Context>::requireZipName(const String& path, QCFPropertyName name) const {
  if (name == QCFPropertyPackageComment) return;
  if (isZipPropertyOfEntry(name) && path != fPkgPath) return;
  throw PackageException<>(PkgLib_Err_BadArgument);
}

template <class Context>
typename Context::String PkgPropertyMgr<Context>::find(const String& path, QCFPropertyName name,
                                                       bool* modified) const {
  const auto ofPath = properties.find(path);
  if (ofPath == properties.end()) return {};
  const auto element = ofPath->second.find(name);
  if (element == ofPath->second.end()) return {};
  if (modified != nullptr) *modified = element->second.modified;
  return element->second.value;
}

template <class Context>
void PkgPropertyMgr<Context>::beginUpdate() {
  savedProperties = properties;
  inUpdate = true;
}

template <class Context>
void PkgPropertyMgr<Context>::endUpdate() {
  if (!inUpdate) return;
  writeGenericProperties();
  savedProperties.clear();
  inUpdate = false;
}

template <class Context>
void PkgPropertyMgr<Context>::cancelUpdate() {
  properties.swap(savedProperties);
  savedProperties.clear();
  inUpdate = false;
}

}  // namespace pkg
