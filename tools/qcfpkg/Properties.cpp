#include "Properties.h"

#include <array>
#include <istream>
#include <streambuf>
#include <utility>

#include "package/expat/ExpatXMLParser.h"

#include "EntryData.h"

namespace {

constexpr std::array<std::pair<pkg::QCFPropertyName, const char*>, 3> kKeys{
    {{pkg::QCFPropertyDateTime, "datetime"},
     {pkg::QCFPropertyMacType, "mac_type"},
     {pkg::QCFPropertyMacCreator, "mac_creator"}}};

bool isKnownKey(const std::string& key) {
  for (const auto& [name, known] : kKeys) {
    if (key == known) return true;
  }
  return false;
}

// Follows the one structure that a document has:
// pkgProperties / (package, entries / entry[path] / prop[key]).
class Reader final : public pkg::IXMLParser_EventHandler {
public:
  explicit Reader(PropertiesText& out) : fOut(out) {}

  int startElement(const char* name, const char** attributes) override {
    fPath += "/" + std::string(name);
    if (fPath == "/pkgProperties/entries/entry") {
      fEntry = attribute(attributes, "path");
      if (fEntry.empty()) return fault("an entry has no path");
    } else if (fPath == "/pkgProperties/entries/entry/prop") {
      fKey = attribute(attributes, "key");
      if (fKey.empty()) return fault("a property has no key");
      if (!isKnownKey(fKey)) fOut.foreign = true;
      if (!fOut.properties[fEntry].emplace(fKey, "").second) {
        return fault("a property comes twice");
      }
      fInProperty = true;
    } else if (fPath == "/pkgProperties") {
      fSeenRoot = true;
    } else if (fPath != "/pkgProperties/package" && fPath != "/pkgProperties/entries") {
      if (!fSeenRoot) return fault("it is no properties document");
      return fault("an element " + std::string(name) + " is not known there");
    }
    return 0;
  }
  int endElement(const char* name) override {
    fPath.resize(fPath.size() - std::string(name).size() - 1);
    fInProperty = false;
    return 0;
  }
  int characterData(const char* data, int length) override {
    if (fInProperty) {
      fOut.properties[fEntry][fKey].append(data, static_cast<std::size_t>(length));
    }
    return 0;
  }
  int processingInstruction(const char*, const char*, int) override { return keepForeign(); }
  int comment(const char*, int) override { return keepForeign(); }

private:
  static std::string attribute(const char** attributes, const std::string& name) {
    for (; attributes[0] != nullptr && attributes[1] != nullptr; attributes += 2) {
      if (name == attributes[0]) return attributes[1];
    }
    return {};
  }
  int keepForeign() {
    fOut.foreign = true;
    return 0;
  }
  int fault(const std::string& text) {
    fOut.fault = text;
    return -1;
  }

  PropertiesText& fOut;
  std::string fPath;
  std::string fEntry;
  std::string fKey;
  bool fSeenRoot = false;
  bool fInProperty = false;
};

// A text as a stream reads it, where it lies.
class TextBuffer final : public std::streambuf {
public:
  explicit TextBuffer(const std::string& text) {
    char* const begin = const_cast<char*>(text.data());
    setg(begin, begin, begin + text.size());
  }
};

}  // namespace

PropertiesText readProperties(const std::string& document) {
  PropertiesText text;
  Reader reader(text);
  pkg::ExpatXMLParser parser;
  TextBuffer buffer(document);
  std::istream stream(&buffer);
  parser.setEventHandler(&reader);
  parser.parse(stream);
  parser.finish();
  if (text.fault.empty()) text.fault = parser.getErrorText();
  return text;
}

std::optional<PropertyMap> keepableProperties(const ziplayout::Layout& layout) {
  const ziplayout::Entry* const document = layout.find(kPropertiesName);
  if (document == nullptr) return PropertyMap();
  try {
    PropertiesText text =
        readProperties(ziplayout::readEntry(layout, *document, std::uint64_t{1} << 26));
    if (!text.fault.empty() || text.foreign) return std::nullopt;
    return std::move(text.properties);
  } catch (const ziplayout::DataError&) {
    return std::nullopt;
  }
}

const char* keyOf(pkg::QCFPropertyName name) {
  for (const auto& [known, key] : kKeys) {
    if (known == name) return key;
  }
  return nullptr;
}

std::string escaped(const std::string& text) {
  std::string out;
  for (const char character : text) {
    switch (character) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\r':
        out += "&#13;";
        break;
      default:
        out.push_back(character);
    }
  }
  return out;
}
