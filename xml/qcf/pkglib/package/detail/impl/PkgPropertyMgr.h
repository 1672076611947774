#pragma once

#include <utility>

#include "package/detail/BasePackage.h"
#include "package/detail/BasePkgHexStrings.h"
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
  const ValueElem* const element = find(path, name);
  if (element == nullptr) return {};
  if (modified != nullptr) *modified = element->modified;
  return element->value;
}

template <class Context>
void PkgPropertyMgr<Context>::setZipProperty(const String& path, QCFPropertyName name,
                                             const String& value, bool fromRecord) {
  requireZipName(path, name);
  ValueElem element{!fromRecord, value};
  properties[path][name] = std::move(element);
}

template <class Context>
void PkgPropertyMgr<Context>::addRecordDateTime(const boost::shared_array<char>& name,
                                                RecordDateTimes::DateTime value) {
  if (name[0] == fPkgPath[0]) requireZipName(Context::fromUTF8(name.get()), QCFPropertyZipDate);
  recordDateTimes.add(name, value);
}

template <class Context>
const RecordDateTimes::DateTime* PkgPropertyMgr<Context>::findRecordDateTime(const String& path) {
  const boost::shared_array<char> text = Context::toUTF8(path);
  const bool endsAtNUL = Context::fromUTF8(text.get()) != path;  // no name of a record goes on
  return endsAtNUL ? nullptr : findRecordDateTime(text.get());
}

template <class Context>
const RecordDateTimes::DateTime* PkgPropertyMgr<Context>::findRecordDateTime(const char* name) {
  return recordDateTimes.find(name);
}

template <class Context>
bool PkgPropertyMgr<Context>::hasOwnDateTime(const String& path) const {
  return find(path, QCFPropertyZipDate) != nullptr || find(path, QCFPropertyZipTime) != nullptr;
}

template <class Context>
typename Context::String PkgPropertyMgr<Context>::getZipProperty(const String& path,
                                                                 QCFPropertyName name,
                                                                 bool* modified) {
  requireZipName(path, name);
  if (const ValueElem* const element = find(path, name)) {
    if (modified != nullptr) *modified = element->modified;
    return element->value;
  }
  if (name != QCFPropertyZipDate && name != QCFPropertyZipTime) return {};
  const RecordDateTimes::DateTime* const recorded = findRecordDateTime(path);
  if (recorded == nullptr) return {};
  if (modified != nullptr) *modified = false;
  const unsigned short word = name == QCFPropertyZipDate ? recorded->date : recorded->time;
  return BasePkgHexStrings<Context>::getInstance()->iToHexString(word);
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
const typename PkgPropertyMgr<Context>::ValueElem* PkgPropertyMgr<Context>::find(
    const String& path, QCFPropertyName name) const {
  const auto ofPath = properties.find(path);
  if (ofPath == properties.end()) return nullptr;
  const auto element = ofPath->second.find(name);
  return element == ofPath->second.end() ? nullptr : &element->second;
}

template <class Context>
void PkgPropertyMgr<Context>::beginUpdate() {
  savedProperties = properties;
  savedDateTimes = recordDateTimes.count();
  inUpdate = true;
}

template <class Context>
void PkgPropertyMgr<Context>::endUpdate() {
  if (!inUpdate) return;
  writeGenericProperties();
  savedProperties.clear();
  savedDateTimes = 0;
  inUpdate = false;
}

template <class Context>
void PkgPropertyMgr<Context>::cancelUpdate() {
  // Where the update's beginning or the writing of its queue has failed, nothing is saved: every
  // property goes, those of the records included.
  properties.swap(savedProperties);
  recordDateTimes.keepFirst(savedDateTimes);
  savedProperties.clear();
  savedDateTimes = 0;
  inUpdate = false;
}

}  // namespace pkg
