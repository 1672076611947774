#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include <fmt/format.h>

#include "Findings.h"
#include "Texts.h"
#include "common/Failure.h"

using ziplayout::Entry;
using ziplayout::Header;
using ziplayout::Layout;

namespace {

bool isASCII(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

std::string lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 32) : c; });
  return text;
}

bool hasSegment(const std::string& name, const std::string& wanted) {
  return ("/" + name + "/").find("/" + wanted + "/") != std::string::npos;
}

template <class Test>
bool anySegment(const std::string& name, const Test& test) {
  for (std::size_t at = 0; at <= name.size();) {
    const std::size_t slash = std::min(name.find('/', at), name.size());
    if (test(name.substr(at, slash - at))) return true;
    at = slash + 1;
  }
  return false;
}

// The names of devices, whatever the extension, characters that stand for something else, and ends
// that are cut off.
bool isOddOnWindows(const std::string& name) {
  static const std::set<std::string> kDevices{"con", "prn", "aux", "nul"};
  return anySegment(name, [](const std::string& segment) {
    if (segment.empty() || segment == "." || segment == "..") return false;
    const std::string stem = lowered(segment.substr(0, segment.find('.')));
    const std::string kind = stem.substr(0, 3);
    const bool isPort =
        stem.size() == 4 && (kind == "com" || kind == "lpt") && stem[3] >= '1' && stem[3] <= '9';
    return isPort || kDevices.count(stem) != 0 || segment.back() == '.' || segment.back() == ' ' ||
           segment.find_first_of("<>:\"|?*") != std::string::npos;
  });
}

void checkName(const Entry& entry, Findings& findings) {
  const std::string& name = entry.central.name;
  const auto add = [&](bool found, const char* id, const char* text) {
    if (found) findings.add(id, name, entry.recordOffset, text);
  };
  add(name.empty(), "name-empty", "an entry has no name");
  if (name.empty()) return;
  const bool isDrive =
      name.size() >= 2 && name[1] == ':' && ((name[0] | 32) >= 'a' && (name[0] | 32) <= 'z');
  const std::string body = entry.isFolder() ? name.substr(0, name.size() - 1) : name;
  const bool isAbsolute = name.front() == '/';
  const bool isOdd = hasSegment(body, ".") || (!isAbsolute && hasSegment(body, ""));
  add(isAbsolute, "name-absolute", "the name is absolute");
  add(hasSegment(body, ".."), "name-parent", "the name leads out of the folder");
  add(name.find('\\') != std::string::npos, "name-backslash", "the name has a backslash");
  add(isDrive, "name-drive", "the name begins with a drive");
  add(tools::hasControls(name), "name-control", "the name has control characters");
  add(!isDrive && isOddOnWindows(body), "name-windows", "Windows does not take the name");
  add(isOdd, "name-segment", "the name has an empty or idle segment");
  const bool isMarked = (entry.central.flags & ziplayout::kFlagUTF8) != 0;
  add(isMarked && !isUTF8(name), "name-encoding", "the name is marked as UTF-8 and is not");
  add(!isMarked && !isASCII(name), "name-encoding", "nothing tells the encoding of the name");
}

void checkLocal(const Layout& layout, const Entry& entry, Findings& findings) {
  const Header& central = entry.central;
  const ziplayout::LocalHeader& local = *entry.local;
  const auto add = [&](const char* id, const std::string& text) {
    findings.add(id, central.name, entry.offset, text);
  };
  if (!local.hasCentralName) {
    add("local-name", fmt::format("its local header calls it {}", quoted(layout.localName(entry))));
  }
  if (local.method != central.method) {
    add("local-method", fmt::format("its local header says {}, the directory {}",
                                    methodName(local.method), methodName(central.method)));
  }
  const int differing = local.flags ^ central.flags;
  constexpr int kMeaningful =
      ziplayout::kFlagEncrypted | ziplayout::kFlagDescriptor | ziplayout::kFlagUTF8;
  if ((differing & kMeaningful) != 0) {
    add("local-flags", fmt::format("its local header has flags {:04x}, the directory {:04x}",
                                   local.flags, central.flags));
  }
  if (local.date != central.date || local.time != central.time) {
    add("local-date", "date or time differ between local header and directory");
  }
  // With a descriptor, the local header may leave its numbers open.
  const bool hasDescriptor = (local.flags & ziplayout::kFlagDescriptor) != 0;
  const bool isOpen = hasDescriptor && local.crc == 0;
  if (local.crc != central.crc && !isOpen) {
    add("local-crc", fmt::format("its local header has CRC {:08x}, the directory {:08x}", local.crc,
                                 central.crc));
  }
  const auto open = [&](std::uint64_t number) {
    return hasDescriptor && (number == 0 || number == 0xFFFFFFFF);
  };
  const bool sizes = (local.size == central.size || open(local.size)) &&
                     (local.compressedSize == central.compressedSize || open(local.compressedSize));
  if (!sizes) {
    add("local-size",
        fmt::format("its local header has {} bytes as {}, the directory {} as {}", local.size,
                    local.compressedSize, central.size, central.compressedSize));
  }
}

void checkDescriptor(const Entry& entry, Findings& findings) {
  if ((entry.local->flags & ziplayout::kFlagDescriptor) == 0) return;
  const std::uint64_t place = entry.dataOffset + entry.central.compressedSize;
  if (entry.lacksDescriptor()) {
    findings.add("descriptor-missing", entry.central.name, place,
                 "no data descriptor that agrees with the directory follows the data");
  } else if (!entry.descriptor.hasSignature) {
    findings.add("descriptor-unsigned", entry.central.name, place,
                 "the data descriptor has no signature");
  }
}

void checkExtra(const Entry& entry, Findings& findings) {
  const Header& central = entry.central;
  const auto extra = ziplayout::parseExtra(central.extra);
  if (!extra.whole) {
    findings.add("extra-field", central.name, entry.recordOffset,
                 "the extra field in the directory does not end with a block");
  }
  if (entry.local && !entry.local->extraIsWhole) {
    findings.add("extra-field", central.name, entry.offset,
                 "the extra field in the local header does not end with a block");
  }
  const bool missing = central.zip64Missing || (entry.local && entry.local->zip64Missing);
  if (missing) {
    findings.add("zip64-number-missing", central.name, entry.recordOffset,
                 "a number of the Zip64 block is missing");
  }
  constexpr std::uint64_t kOnes = 0xFFFFFFFF;
  const bool large =
      central.size >= kOnes || central.compressedSize >= kOnes || entry.offset >= kOnes;
  if (extra.find(ziplayout::kExtraZip64) != nullptr && !large && !missing) {
    findings.add("zip64-needless", central.name, entry.recordOffset,
                 "it has a Zip64 block, and its numbers are small");
  }
}

// What a record says of the whole file and of the format.
void checkRecord(const Layout& layout, const Entry& entry, Findings& findings) {
  const Header& central = entry.central;
  const ziplayout::Numbers& local =
      entry.local ? static_cast<const ziplayout::Numbers&>(*entry.local) : central;
  const auto add = [&](bool found, const char* id, const std::string& text) {
    if (found) findings.add(id, central.name, entry.offset, text);
  };
  // All ones send to a block of Zip64, which says the same in what is one file.
  const bool isElsewhere = entry.disk != 0 && entry.disk != 0xFFFF && !layout.end().isSplit;
  add(isElsewhere, "disk-number",
      fmt::format("the directory says that it begins on disk {}", entry.disk));
  constexpr int kNewest = 63;  // of the lower byte; the upper may name a system
  const int needed = std::max(central.needed & 0xFF, local.needed & 0xFF);
  add(needed > kNewest, "version-needed",
      fmt::format("it asks for version {}.{} of the format, which is none", needed / 10,
                  needed % 10));
  add(((central.flags | local.flags) & ziplayout::kFlagMasked) != 0, "headers-masked",
      "its flags say that its local header is masked");
}

void checkKind(const Entry& entry, Findings& findings) {
  const Header& central = entry.central;
  const auto add = [&](bool found, const char* id, const std::string& text) {
    if (found) findings.add(id, central.name, entry.offset, text);
  };
  const std::uint16_t method = central.method;
  const bool known = method == ziplayout::kMethodStored || method == ziplayout::kMethodDeflated;
  add(entry.isEncrypted(), "encrypted", "it is encrypted");
  add(!known, "method-unknown", fmt::format("it is stored as {}", methodName(method)));
  add(entry.isFolder() && central.size != 0, "folder-data", "a folder holds data");
  add(entry.isSymbolicLink(), "symbolic-link", "it is a symbolic link");
  add(dateText(central.date, central.time).empty(), "date-invalid",
      fmt::format("{:04x} {:04x} is no date and time", central.date, central.time));
}

// The paths that names lead through, files and folders alike.
class Spellings {
public:
  struct Clash {
    std::string path;
    std::string other;
  };

  // Takes a name's paths; returns the one that only case tells from another in the same folder.
  // There is at most one: what is below it stands in a folder of its own.
  std::optional<Clash> take(const std::string& name) {
    std::optional<Clash> clash;
    std::size_t folder = 0;
    for (std::size_t at = 0; at < name.size();) {
      const std::size_t slash = std::min(name.find('/', at), name.size());
      const std::string segment = name.substr(at, slash - at);
      const auto [place, isNew] = fPaths.emplace(Key(folder, segment), fPaths.size() + 1);
      if (isNew) {
        const auto [other, isAlone] = fFolded.emplace(Key(folder, lowered(segment)), segment);
        if (!isAlone) clash = {name.substr(0, slash), name.substr(0, at) + other->second};
      }
      folder = place->second;
      at = slash + 1;
    }
    return clash;
  }

private:
  using Key = std::pair<std::size_t, std::string>;  // a folder's number, and what is in it
  std::map<Key, std::size_t> fPaths;
  std::map<Key, std::string> fFolded;
};

}  // namespace

void checkEntries(const Layout& layout, Findings& findings) {
  for (const Entry& entry : layout.entries()) {
    checkName(entry, findings);
    checkKind(entry, findings);
    checkRecord(layout, entry, findings);
    checkExtra(entry, findings);
    if (!entry.local) {
      findings.add("local-missing", entry.central.name, entry.offset,
                   "there is no local header where the directory says");
      continue;
    }
    checkLocal(layout, entry, findings);
    checkDescriptor(entry, findings);
  }
}

void checkNames(const Layout& layout, Findings& findings) {
  std::set<std::string> exact;
  Spellings spellings;
  for (const Entry& entry : layout.entries()) {
    const std::string& name = entry.central.name;
    if (!exact.insert(name).second) {
      findings.add("name-duplicate", name, entry.recordOffset, "the name comes twice");
      continue;
    }
    if (const auto clash = spellings.take(name)) {
      findings.add("name-case", name, entry.recordOffset,
                   fmt::format("only upper and lower case tell {} from {}", quoted(clash->path),
                               quoted(clash->other)));
    }
  }
  for (const Entry& entry : layout.entries()) {
    const std::string& name = entry.central.name;
    if (name.empty() || entry.isFolder()) continue;
    const auto next = exact.lower_bound(name + "/");
    if (next != exact.end() && next->compare(0, name.size() + 1, name + "/") == 0) {
      findings.add("name-file-and-folder", name, entry.recordOffset,
                   fmt::format("it is a file, and the folder of {}", quoted(*next)));
    }
  }
}

void checkData(const Layout& layout, const Entry& entry, Findings& findings,
               const ziplayout::Sink& read) {
  const std::uint16_t method = entry.central.method;
  const bool known = method == ziplayout::kMethodStored || method == ziplayout::kMethodDeflated;
  if (!entry.local || entry.isEncrypted() || !known) return;  // told by the headers' check
  try {
    readEntry(layout, entry, read);
  } catch (const ziplayout::DataError& error) {
    findings.add(error.id(), entry.central.name, entry.dataOffset, error.what());
  }
}
