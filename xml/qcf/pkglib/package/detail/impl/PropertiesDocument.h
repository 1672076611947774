#pragma once

#include <ios>
#include <ostream>

#include "package/detail/BasePackage.h"
#include "package/detail/PropertiesDocument.h"

namespace pkg {

struct GenericPropertyKey {
  QCFPropertyName name;
  const char* key;
};

constexpr GenericPropertyKey kGenericPropertyKeys[] = {
    {QCFPropertyDateTime, "datetime"},
    {QCFPropertyMacType, "mac_type"},
    {QCFPropertyMacCreator, "mac_creator"},
};

template <class Context>
std::size_t PkgPropertyMgr<Context>::countGenericProperties() const {
  std::size_t count = 0;
  for (const auto& [path, ofPath] : properties) {
    if (path == fPkgPath) continue;
    for (const auto& [name, element] : ofPath)
      count += isGenericProperty(name) ? 1 : 0;
  }
  return count;
}

template <class Context>
void PkgPropertyMgr<Context>::removeDocument() {
  if (package->entryExists(fPropertiesXMLFilePath) == PkgEntryNone) return;
  package->getFile(fPropertiesXMLFilePath, true)->remove();
}

// One entry of the document; nothing for an entry without generic properties. Texts go out as they
// stand, up to their first NUL: nothing is escaped.
template <class Context, class Properties>
void writeEntryProperties(std::ostream& out, const typename Context::String& path,
                          const Properties& ofPath) {
  bool started = false;
  for (const GenericPropertyKey& known : kGenericPropertyKeys) {
    const auto element = ofPath.find(known.name);
    if (element == ofPath.end()) continue;
    if (!started) out << "<entry path=\"" << Context::toUTF8(path).get() << "\">\n";
    started = true;
    out << "<prop key=\"" << known.key << "\">" << Context::toUTF8(element->second.value).get()
        << "</prop>\n";
  }
  if (started) out << "</entry>\n";
}

template <class Context>
void PkgPropertyMgr<Context>::writeGenericProperties() {
  if (package->getXMLParser() == nullptr) return;
  if (countGenericProperties() == 0) {
    removeDocument();
    return;
  }
  const auto document = package->getFile(fPropertiesXMLFilePath, false);
  const auto out = document->open(std::ios::out | std::ios::trunc, false);
  out->exceptions(std::ios::badbit);
  *out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
          "<pkgProperties xmlns=\"http://ns.quillon.example/qcf/1.0/\">\n"
          "<package/>\n"
          "<entries>\n";
  for (const auto& [path, ofPath] : properties) {
    if (path != fPkgPath) writeEntryProperties<Context>(*out, path, ofPath);
  }
  *out << "</entries>\n"
          "</pkgProperties>\n";
  out->close();
}

template <class Context>
void PkgPropertyMgr<Context>::readGenericProperties() {
  IXMLParser* const parser = package->getXMLParser();
  if (parser == nullptr) return;
  if (package->entryExists(fPropertiesXMLFilePath) == PkgEntryNone) return;
  const auto document = package->getFile(fPropertiesXMLFilePath, true);
  const auto in = document->open(std::ios::in, false);
  MyEventHandler handler(this);
  parser->setEventHandler(&handler);
  try {
    parser->parse(*in);
  } catch (...) {
    try {
      parser->finish();
    } catch (...) {  // what parsing raised is what the caller is told
    }
    throw;
  }
  parser->finish();
  if (handler.isOk()) {
    loaded = true;
  } else {
    handler.restore();
  }
}

// The value of an attribute; null where it is missing.
inline const char* findAttribute(const char** attributes, const char* name) {
  const std::string wanted(name);
  for (; attributes[0] != nullptr && attributes[1] != nullptr; attributes += 2) {
    if (wanted == attributes[0]) return attributes[1];
  }
  return nullptr;
}

template <class Context>
int PkgPropertyMgr<Context>::MyEventHandler::startElement(const char* name,
                                                          const char** attributes) {
  if (!ok) return -1;
  ++depth;
  ok = startKnownElement(name, attributes);
  return ok ? 0 : -1;
}

template <class Context>
bool PkgPropertyMgr<Context>::MyEventHandler::startKnownElement(const String& name,
                                                                const char** attributes) {
  if (name == "pkgProperties") {
    if (depth != 1 || pkgPropertiesCount != 0) return false;
    ++pkgPropertiesCount;
    inPkgProperties = true;
  } else if (name == "package") {
    if (depth != 2 || !inPkgProperties || packageCount != 0) return false;
    packageCount = 1;
    inPackage = true;
    currentPath = fPkgPath;
  } else if (name == "entries") {
    if (depth != 2 || !inPkgProperties || entriesCount != 0) return false;
    entriesCount = 1;
    inEntries = true;
  } else if (name == "entry") {
    if (depth != 3 || !inEntries) return false;
    inEntry = true;
    const char* const path = findAttribute(attributes, "path");
    if (path != nullptr) currentPath = Context::fromUTF8(path);
    return !currentPath.empty();
  } else if (name == "prop") {
    if (!(depth == 3 && inPackage) && !(depth == 4 && inEntry)) return false;
    inProp = true;
    const char* const key = findAttribute(attributes, "key");
    if (key != nullptr) currentKey = key;
    return !currentKey.empty();
  }
  return true;
}

template <class Context>
int PkgPropertyMgr<Context>::MyEventHandler::endElement(const char* name) {
  if (!ok) return -1;
  ok = endKnownElement(name);
  if (depth < 1) {
    ok = false;
  } else {
    --depth;
  }
  return ok ? 0 : -1;
}

template <class Context>
bool PkgPropertyMgr<Context>::MyEventHandler::endKnownElement(const String& name) {
  if (name == "pkgProperties") {
    if (depth != 1 || !inPkgProperties) return false;
    inPkgProperties = false;
  } else if (name == "package") {
    if (depth != 2 || !inPackage) return false;
    currentPath.clear();
    inPackage = false;
  } else if (name == "entries") {
    if (depth != 2 || !inEntries) return false;
    inEntries = false;
  } else if (name == "entry") {
    if (depth != 3 || !inEntry) return false;
    currentPath.clear();
    inEntry = false;
  } else if (name == "prop") {
    if (!inProp || (!(depth == 3 && inPackage) && !(depth == 4 && inEntry))) return false;
    currentKey.clear();
    inProp = false;
  }
  return true;
}

template <class Context>
int PkgPropertyMgr<Context>::MyEventHandler::characterData(const char* data, int length) {
  if (!ok) return -1;
  const std::string text(data, static_cast<std::size_t>(length));
  for (const GenericPropertyKey& known : kGenericPropertyKeys) {
    if (currentKey == known.key) {
      manager->setGenericProperty(currentPath, known.name, Context::fromUTF8(text.c_str()), true);
    }
  }
  return 0;
}

}  // namespace pkg
