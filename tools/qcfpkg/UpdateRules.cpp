#include "UpdateRules.h"

#include <algorithm>
#include <array>
#include <set>

#include <fmt/format.h>

#include "EntryData.h"
#include "common/Failure.h"

using ziplayout::Entry;
using ziplayout::Header;
using ziplayout::Layout;

namespace {

[[noreturn]] void refuse(const Layout& layout, const std::string& reason) {
  throw tools::Failure(
      fmt::format("cannot change {}: {}", tools::shown(layout.file().path()), reason));
}

bool has(const std::string& text, char character) {
  return text.find(character) != std::string::npos;
}

// What the library itself needs in order to read the package rightly.
void requireReadable(const Layout& layout, const Change& change) {
  const ziplayout::End& end = layout.end();
  if (end.isSplit) refuse(layout, "it is one part of a split archive");
  if (layout.entries().empty()) {
    refuse(layout, "it has no entries; make it anew with: qcfpkg create --overwrite");
  }
  const bool isFirst = layout.shift() == 0 && layout.file().read(0, 4) == std::string("PK\3\4");
  if (!isFirst && !change.dropsLeading) {
    refuse(layout, "bytes stand in front of its first entry; qcfpkg compact drops them");
  }
  if (layout.entries().size() != end.entries) refuse(layout, "its count of entries is wrong");
  if (end.entries >= 0xFFFF || layout.directoryOffset() >= 0xFFFFFFFF) {
    refuse(layout, "it is too large: 65,534 entries and 4 GiB are the most that can be changed");
  }
  const std::string behind =
      layout.file().read(end.offset + 4, static_cast<std::size_t>(std::min<std::uint64_t>(
                                             layout.file().size() - end.offset, 1 << 20)));
  if (has(end.comment, '\0') || behind.find("PK\5\6") != std::string::npos) {
    refuse(layout, "its comment cannot be kept: it looks like an end record, or holds zero bytes");
  }
  if (end.comment.size() != end.commentLength) refuse(layout, "its comment is cut off");
}

void requireSound(const Layout& layout, const Entry& entry) {
  const Header& header = entry.central;
  const std::string name = tools::shown(header.name);
  if (header.name.empty()) refuse(layout, "an entry has no name");
  if (has(header.name, '\0')) refuse(layout, fmt::format("the name {} holds a zero byte", name));
  if (!entry.local) refuse(layout, fmt::format("the local header of {} is missing", name));
  if (header.zip64Missing) refuse(layout, fmt::format("the Zip64 numbers of {} are missing", name));
  if (entry.dataOffset + header.compressedSize > layout.file().size()) {
    refuse(layout, fmt::format("the data of {} is cut off", name));
  }
  if (entry.isFolder() && header.size != 0) {
    refuse(layout, fmt::format("the folder {} holds data, which would be lost", name));
  }
}

bool takesOut(const Change& change, const std::string& name) {
  const auto& removed = change.removed;
  const auto& added = change.added;
  return std::find(removed.begin(), removed.end(), name) != removed.end() ||
         std::any_of(added.begin(), added.end(),
                     [&](const Input& input) { return !input.isFolder() && input.name == name; });
}

bool hasOddTypeBlock(const ziplayout::ExtraField& extra) {
  int count = 0;
  for (const ziplayout::ExtraBlock& block : extra.blocks) {
    if (block.id != ziplayout::kExtraTypeCreator) continue;
    ++count;
    if (block.body.size() != 12 || block.body.compare(0, 4, "ZPIT") != 0) return true;
  }
  return count > 1;
}

// Of the extra field of a large entry, the library copies these alone.
constexpr std::array<std::uint16_t, 2> kKeptOfLarge{ziplayout::kExtraZip64,
                                                    ziplayout::kExtraTypeCreator};
// What programs write of times and users without being asked.
constexpr std::array<std::uint16_t, 8> kDispensable{ziplayout::kExtraZip64,
                                                    ziplayout::kExtraTypeCreator,
                                                    0x000A,
                                                    0x5455,
                                                    0x5855,
                                                    0x7855,
                                                    0x7875,
                                                    0xCAFE};

template <std::size_t count>
bool hasOthersThan(const ziplayout::ExtraField& extra,
                   const std::array<std::uint16_t, count>& ids) {
  return std::any_of(extra.blocks.begin(), extra.blocks.end(), [&](const auto& block) {
    return std::find(ids.begin(), ids.end(), block.id) == ids.end();
  });
}

// A deflate that fails at the end of its data need not have been told.
bool isWhole(const Layout& layout, const Entry& entry) {
  if (entry.central.method != ziplayout::kMethodDeflated || entry.central.size == 0) return true;
  try {
    readEntry(layout, entry, [](const char*, std::size_t) {});
    return true;
  } catch (const ziplayout::DataError&) {
    return false;
  }
}

}  // namespace

void requireChangeable(const Layout& layout, const Change& change) {
  layout.requireWhole();
  requireReadable(layout, change);
  std::set<std::string> names;
  for (const Entry& entry : layout.entries()) {
    const bool isSecond = !names.insert(entry.central.name).second;
    if (isSecond && (change.inPlace || !takesOut(change, entry.central.name))) {
      refuse(layout, fmt::format("two entries are named {}, and one would be lost",
                                 tools::shown(entry.central.name)));
    }
    requireSound(layout, entry);
  }
  if (!change.inPlace) return;
  for (const ziplayout::Extent& extent : layout.extents()) {
    if (!extent.what.empty() && extent.end > layout.directoryOffset()) {
      refuse(layout, "entries lie behind its directory; it cannot be changed in place");
    }
  }
  for (const Entry& entry : layout.entries()) {
    if (!copyWouldDamage(entry)) continue;
    requireRewritable(layout, entry);
    refuse(layout,
           fmt::format("the record of {} cannot be kept in place; without --in-place it can",
                       tools::shown(entry.central.name)));
  }
}

bool hasDuplicates(const Layout& layout) {
  std::set<std::string> names;
  for (const Entry& entry : layout.entries())
    names.insert(entry.central.name);
  return names.size() != layout.entries().size();
}

bool isLarge(const Entry& entry) {
  constexpr std::uint64_t kLarge = 0xFFFFFFFF;
  return entry.central.size >= kLarge || entry.central.compressedSize >= kLarge;
}

bool isEmptyButStoredOtherwise(const Entry& entry) {
  const Header& header = entry.central;
  return header.size == 0 &&
         (header.compressedSize != 0 || header.method != ziplayout::kMethodStored);
}

bool copyWouldDamage(const Entry& entry) {
  const ziplayout::ExtraField extra = ziplayout::parseExtra(entry.central.extra);
  const bool hasZip64 = extra.find(ziplayout::kExtraZip64) != nullptr;
  return !extra.whole || hasOddTypeBlock(extra) || isEmptyButStoredOtherwise(entry) ||
         (hasZip64 && !isLarge(entry)) ||
         (isLarge(entry) && (entry.isEncrypted() || hasOthersThan(extra, kKeptOfLarge)));
}

void requireRewritable(const Layout& layout, const Entry& entry) {
  const std::string name = tools::shown(entry.central.name);
  const auto lose = [&](const char* what) {
    refuse(layout,
           fmt::format("its entries have to be written anew, and {} would lose {}", name, what));
  };
  const ziplayout::ExtraField extra = ziplayout::parseExtra(entry.central.extra);
  if (!extra.whole || hasOddTypeBlock(extra)) lose("its extra field");
  const bool losesEncryption = isLarge(entry) || isEmptyButStoredOtherwise(entry);
  if (losesEncryption && entry.isEncrypted()) lose("its encryption");
  if (isLarge(entry) && hasOthersThan(extra, kDispensable)) lose("its extra field");
}

void verifyPackage(const std::string& path, const std::string& shownPath,
                   const Expectation& expected, const std::string& comment) {
  const Layout layout(path);
  const auto bad = [&](const std::string& what) {
    throw tools::Failure(fmt::format("cannot write {}: what was written is not right: {}",
                                     tools::shown(shownPath), what));
  };
  if (layout.defect()) bad(layout.defect()->text);
  if (layout.end().comment != comment) bad("the comment");
  if (layout.end().directorySize != layout.directoryLength()) bad("the size of the directory");
  if (layout.entries().size() != expected.size()) bad("the count of entries");
  for (const Entry& entry : layout.entries()) {
    const Header& header = entry.central;
    const std::string name = tools::shown(header.name);
    const auto wanted = expected.find(header.name);
    if (wanted == expected.end()) bad("the name " + name);
    const Expected& what = wanted->second;
    if (header.size != what.size) bad("the size of " + name);
    if (header.crc != what.crc) bad("the CRC of " + name);
    if (what.modified && !(DOSMoment{header.date, header.time} == *what.modified)) {
      bad("the date of " + name);
    }
    if (what.compressedSize && header.compressedSize != *what.compressedSize) {
      bad("the compressed size of " + name);
    }
    if (!entry.local || !entry.local->hasCentralName || entry.local->method != header.method) {
      bad("the local header of " + name);
    }
    if (entry.dataOffset + header.compressedSize > layout.directoryOffset()) {
      bad("the place of " + name);
    }
    if (!what.compressedSize && !isWhole(layout, entry)) bad("the data of " + name);
  }
}
