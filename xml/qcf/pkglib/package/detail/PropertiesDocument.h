#pragma once

#include <cstdint>

#include "package/IXMLParser.h"
#include "package/detail/PkgPropertyMgr.h"

namespace pkg {

// Reads a properties document from a parser's events into the manager's map. Serves one document.
template <class Context>
class PkgPropertyMgr<Context>::MyEventHandler : public IXMLParser_EventHandler {
public:
  explicit MyEventHandler(PkgPropertyMgr* propertyManager)
      : manager(propertyManager), snapshot(propertyManager->properties) {}

  int startElement(const char* name, const char** attributes) override;
  int endElement(const char* name) override;
  // Raises 22 for a known property of the package itself, which has none.
  int characterData(const char* data, int length) override;
  int processingInstruction(const char*, const char*, int) override { return 0; }
  int comment(const char*, int) override { return 0; }

  // Whether the document has kept to the structure so far.
  bool isOk() const { return ok; }
  // Puts the manager's properties back to what they were before the document.
  void restore() { manager->properties.swap(snapshot); }

private:
  bool startKnownElement(const String& name, const char** attributes);
  bool endKnownElement(const String& name);

  PkgPropertyMgr* manager;  // not owned
  std::uint32_t depth = 0;
  std::uint32_t pkgPropertiesCount = 0;
  std::uint32_t packageCount = 0;
  std::uint32_t entriesCount = 0;
  bool inPkgProperties = false;
  bool inPackage = false;
  bool inEntries = false;
  bool inEntry = false;
  bool inProp = false;
  bool ok = true;
  String currentPath;
  String currentKey;
  PropertyMap snapshot;
};

}  // namespace pkg
