#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "package/QCFPackage.h"

#include "ZipLayout.h"

constexpr const char* kPropertiesName = "META-INF/pkgproperties.xml";

// One property to be set: of an entry, with a value as the library takes it.
struct PropertySetting {
  std::string entry;
  pkg::QCFPropertyName name = pkg::QCFPropertyDateTime;
  std::string value;
};

// The generic properties, by entry and key, as a properties document says.
using PropertyMap = std::map<std::string, std::map<std::string, std::string>>;

struct PropertiesText {
  PropertyMap properties;
  std::string fault;     // empty for a document that is as it should be
  bool foreign = false;  // it holds what a rewriting would lose
};

// Reads a properties document.
PropertiesText readProperties(const std::string& document);

// What the document of a package says; none where it cannot be read, or where a rewriting would
// lose something of it.
std::optional<PropertyMap> keepableProperties(const ziplayout::Layout& layout);

// The key in the document; null for a property that is not kept there.
const char* keyOf(pkg::QCFPropertyName name);
// `text` as it may stand between tags.
std::string escaped(const std::string& text);
