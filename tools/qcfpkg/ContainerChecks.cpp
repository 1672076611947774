#include <algorithm>
#include <map>
#include <set>
#include <string_view>

#include <fmt/format.h>

#include "EntryData.h"
#include "Findings.h"
#include "Properties.h"
#include "Texts.h"

using ziplayout::Entry;
using ziplayout::Layout;

namespace {

constexpr const char* kTypeName = "mimetype";

void checkTypeText(const Layout& layout, const Entry& entry, Findings& findings) {
  constexpr std::uint64_t kLongest = 1024;
  std::string text;
  try {
    text = readEntry(layout, entry, kLongest);
  } catch (const ziplayout::DataError& error) {
    findings.add("mimetype-text", kTypeName, entry.dataOffset,
                 fmt::format("the type cannot be read: {}", error.what()));
    return;
  }
  if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) {
    findings.add("mimetype-byte-order-mark", kTypeName, entry.dataOffset,
                 "the type begins with a byte order mark");
    text.erase(0, 3);
  }
  const auto last = text.find_last_not_of("\r\n");
  const std::size_t kept = last == std::string::npos ? 0 : last + 1;
  if (kept != text.size()) {
    findings.add("mimetype-line-end", kTypeName, entry.dataOffset + kept,
                 "a line end follows the type");
    text.resize(kept);
  }
  const std::string fault = typeFault(text);
  if (!fault.empty()) {
    findings.add("mimetype-text", kTypeName, entry.dataOffset, "the text is no type: " + fault);
  }
}

void checkEnd(const Layout& layout, Findings& findings) {
  const ziplayout::End& end = layout.end();
  if (end.isSplit && !layout.defect()) {
    findings.add("split", "", end.offset, "the end record speaks of several disks");
  }
  if (end.comment.size() != end.commentLength) {
    findings.add(
        "end-comment-cut", "", end.offset + 22,
        fmt::format("the comment has {} of {} bytes", end.comment.size(), end.commentLength));
  }
  if (end.hasLateSignature) {
    findings.add("end-comment-signature", "", end.offset + 22 + end.comment.find("PK\5\6"),
                 "the comment holds the signature of an end record");
  }
  if (end.trailing != 0) {
    findings.add("end-trailing-bytes", "", layout.file().size() - end.trailing,
                 fmt::format("{} bytes follow the end of the package", end.trailing));
  }
  if (end.zip64Wanted && !layout.defect()) {
    findings.add("zip64-end-missing", "", end.offset,
                 "the end record sends to a Zip64 record that is not there");
  }
  if (end.zip64Differs) {
    findings.add("zip64-end-differs", "", end.zip64Offset,
                 "end record and Zip64 end record say different things");
  }
}

void checkDirectory(const Layout& layout, Findings& findings) {
  const ziplayout::End& end = layout.end();
  if (layout.defect()) {
    findings.add(layout.defect()->id, "", layout.defect()->offset, layout.defect()->text);
    return;
  }
  // Without the Zip64 record that they send to, numbers of all ones say nothing.
  if (layout.directoryLength() != end.directorySize && !end.zip64Wanted) {
    findings.add("directory-size", "", end.offset,
                 fmt::format("the directory has {} bytes, and {} are recorded",
                             layout.directoryLength(), end.directorySize));
  }
  if (layout.entries().size() != end.entries) {
    findings.add("directory-count", "", end.offset,
                 fmt::format("the directory has {} entries, and {} are recorded",
                             layout.entries().size(), end.entries));
  }
}

void checkOverlaps(const Layout& layout, Findings& findings) {
  const auto extents = layout.extents();
  std::uint64_t at = 0;
  std::string before;
  for (const ziplayout::Extent& extent : extents) {
    if (extent.begin < at) {
      findings.add("overlap", extent.what, extent.begin,
                   before.empty() ? std::string("it lies over the directory or an end record")
                                  : "it lies over " + quoted(before));
    }
    if (extent.end < at) continue;
    at = extent.end;
    before = extent.what;
  }
}

bool holdsLocalHeader(const Layout& layout, const ziplayout::Extent& gap) {
  constexpr std::size_t kSlice = 1 << 16;
  for (std::uint64_t at = gap.begin; at < gap.end; at += kSlice) {
    const auto size = std::min<std::uint64_t>(kSlice + 3, gap.end - at);
    const std::string bytes = layout.file().read(at, static_cast<std::size_t>(size));
    if (bytes.find("PK\3\4") != std::string::npos) return true;
  }
  return false;
}

// What lies in gaps and is told already: entries that the directory looks for elsewhere, and
// descriptors that do not agree with it.
class Explained {
public:
  explicit Explained(const Layout& layout) : fLayout(layout) {
    for (const Entry& entry : layout.entries()) {
      if (!entry.local) fLost[entry.central.name] = &entry;
      if (entry.lacksDescriptor()) fDescriptors.insert(entry.end(layout.file().size()));
    }
  }

  // The gap without such a beginning.
  ziplayout::Extent rest(ziplayout::Extent gap) const {
    constexpr std::uint64_t kLongestDescriptor = 24;
    const bool isShort = gap.end - gap.begin <= kLongestDescriptor;
    if (isShort && fDescriptors.count(gap.begin) != 0) gap.begin = gap.end;
    while (gap.begin < gap.end) {
      const std::uint64_t end = endOfLost(gap.begin);
      if (end == gap.begin) break;
      gap.begin = std::min(end, gap.end);
    }
    return gap;
  }

private:
  // Where a lost entry that begins at `at` ends; `at` where none does.
  std::uint64_t endOfLost(std::uint64_t at) const {
    Entry found;
    found.offset = at;
    fLayout.readLocal(found);
    if (!found.local) return at;
    const auto lost = fLost.find(fLayout.localName(found));
    if (lost == fLost.end()) return at;
    found.central = lost->second->central;
    fLayout.readLocal(found);
    return found.end(fLayout.file().size());
  }

  const Layout& fLayout;
  std::map<std::string, const Entry*> fLost;
  std::set<std::uint64_t> fDescriptors;  // where they should be
};

void checkGaps(const Layout& layout, Findings& findings) {
  if (layout.defect()) return;
  const Explained explained(layout);
  const std::uint64_t behind = layout.file().size() - layout.end().trailing;
  for (const ziplayout::Extent& whole : layout.gaps()) {
    const ziplayout::Extent gap = explained.rest(whole);
    const std::uint64_t size = gap.end - gap.begin;
    if (size == 0 || gap.begin >= behind) continue;
    if (gap.begin == 0) {
      findings.add("leading-bytes", "", 0, fmt::format("{} bytes stand in front", size));
      continue;
    }
    findings.add("dead-bytes", "", gap.begin, fmt::format("{} bytes belong to no entry", size));
    if (holdsLocalHeader(layout, gap)) {
      findings.add("hidden-entry", "", gap.begin, "they look like an entry that is not listed");
    }
  }
}

}  // namespace

void checkType(const Layout& layout, Findings& findings) {
  const Entry* const entry = layout.find(kTypeName);
  if (entry == nullptr) {
    findings.add("mimetype-missing", "", std::nullopt, "there is no entry mimetype");
    return;
  }
  if (!entry->local) return;  // told by itself, as are bytes in front that belong to nothing
  if (layout.extents().front().begin != entry->offset) {
    findings.add("mimetype-not-first", kTypeName, entry->offset,
                 "mimetype is not at the start of the file");
  }
  const bool compressed = entry->central.method != 0 || entry->local->method != 0;
  if (compressed) {
    findings.add("mimetype-compressed", kTypeName, entry->offset + 8, "mimetype is compressed");
  }
  if (entry->local->hasExtra) {
    findings.add("mimetype-extra-field", kTypeName, entry->offset + 38,
                 "an extra field stands between name and type");
  }
  checkTypeText(layout, *entry, findings);
}

void checkContainer(const Layout& layout, Findings& findings) {
  if (layout.defect() && layout.defect()->id == "end-missing") {
    findings.add("end-missing", "", layout.defect()->offset, layout.defect()->text);
    return;
  }
  checkEnd(layout, findings);
  checkDirectory(layout, findings);
  checkOverlaps(layout, findings);
  checkGaps(layout, findings);
}

void checkProperties(const Layout& layout, Findings& findings) {
  constexpr std::uint64_t kLongest = std::uint64_t{1} << 26;
  const Entry* const entry = layout.find(kPropertiesName);
  if (entry == nullptr) return;
  PropertiesText text;
  try {
    text = readProperties(readEntry(layout, *entry, kLongest));
  } catch (const ziplayout::DataError&) {  // which the entry's own check tells
    return;
  }
  if (!text.fault.empty()) {
    findings.add("properties-damaged", kPropertiesName, entry->offset, text.fault);
    return;
  }
  if (text.foreign) {
    findings.add("properties-foreign", kPropertiesName, entry->offset,
                 "it holds properties or comments of other programs");
  }
  std::set<std::string_view> names;
  for (const Entry& listed : layout.entries())
    names.insert(listed.central.name);
  for (const auto& [path, values] : text.properties) {
    if (names.count(path) != 0) continue;
    findings.add("properties-no-entry", path, entry->offset,
                 "properties of an entry that is not there");
  }
}
