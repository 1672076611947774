#include "Findings.h"

#include <algorithm>
#include <stdexcept>

const std::vector<FindingKind>& findingKinds() {
  constexpr auto kNote = Severity::Note;
  constexpr auto kWarning = Severity::Warning;
  constexpr auto kError = Severity::Error;
  static const char* const kSetType = "set the type with: qcfpkg type PACKAGE TYPE";
  static const char* const kPackAgain = "take the files out and pack them again";
  static const char* const kCopy = "get another copy of the file";
  static const char* const kRename = "pack it again under a plain relative name with / only";
  static const char* const kDeceives = "trust no entry: files made to deceive are built like that";
  static const char* const kReplace =
      "replace all of the name with: qcfpkg add PACKAGE NAME=FILE, or remove them";
  static const std::vector<FindingKind> kKinds{
      {"mimetype-missing", kError, kSetType},
      {"mimetype-not-first", kError, kSetType},
      {"mimetype-compressed", kError, kSetType},
      {"mimetype-extra-field", kError, kSetType},
      {"mimetype-byte-order-mark", kError, kSetType},
      {"mimetype-line-end", kError, kSetType},
      {"mimetype-text", kError, kSetType},
      {"end-missing", kError, kCopy},
      {"split", kError, "join the parts with the program that made them"},
      {"end-comment-cut", kError, kCopy},
      {"end-comment-signature", kError, "shorten the comment: programs find a wrong end record"},
      {"end-trailing-bytes", kWarning, "cut the bytes behind the package off"},
      {"leading-bytes", kError, "drop them with: qcfpkg compact PACKAGE"},
      {"directory-missing", kError, kCopy},
      {"directory-damaged", kError, kCopy},
      {"directory-size", kError, "write the package anew with: qcfpkg add, remove or compact"},
      {"directory-count", kError, kPackAgain},
      {"zip64-end-missing", kError, kCopy},
      {"zip64-end-differs", kError, kPackAgain},
      {"zip64-number-missing", kError, kPackAgain},
      {"zip64-needless", kNote, "nothing: other programs write it beside small numbers, too"},
      {"overlap", kError, kDeceives},
      {"data-unread", kError, kDeceives},
      {"dead-bytes", kNote, "free them with: qcfpkg compact PACKAGE"},
      {"hidden-entry", kNote, "look at it before you pass the file on; compact removes it"},
      {"local-missing", kError, kCopy},
      {"local-name", kError, kPackAgain},
      {"local-method", kError, kPackAgain},
      {"local-flags", kWarning, kPackAgain},
      {"local-crc", kError, kPackAgain},
      {"local-size", kError, kPackAgain},
      {"local-date", kNote, "nothing: programs go by the directory"},
      {"descriptor-missing", kError, kPackAgain},
      {"descriptor-unsigned", kNote, "nothing: the format allows it"},
      {"disk-number", kWarning, kPackAgain},
      {"version-needed", kWarning, kPackAgain},
      {"headers-masked", kWarning, kPackAgain},
      {"extra-field", kWarning, kPackAgain},
      {"data-cut", kError, kCopy},
      {"data-damaged", kError, kCopy},
      {"data-size", kError, kCopy},
      {"data-crc", kError, kCopy},
      {"encrypted", kError, "pack it again without encryption"},
      {"method-unknown", kError, "pack it again stored or deflated"},
      {"name-empty", kError, kRename},
      {"name-absolute", kError, kRename},
      {"name-parent", kError, kRename},
      {"name-backslash", kError, kRename},
      {"name-drive", kError, kRename},
      {"name-control", kError, kRename},
      {"name-windows", kNote, "rename it: Windows refuses such a name, or changes it"},
      {"name-segment", kWarning, kRename},
      {"name-encoding", kWarning, "pack it again with a program that writes names in UTF-8"},
      {"name-duplicate", kError, kReplace},
      {"name-case", kWarning, "rename one: some systems take the two for one"},
      {"name-file-and-folder", kError, "rename the file or the folder"},
      {"folder-data", kWarning, "move the data into a file"},
      {"symbolic-link", kWarning, "pack what it points at"},
      {"date-invalid", kNote, "set it with: qcfpkg prop set PACKAGE ENTRY modified ..."},
      {"properties-damaged", kError, "write the document anew, or remove it"},
      {"properties-foreign", kNote, "know that a change of a property would drop it"},
      {"properties-no-entry", kWarning, "drop them with: qcfpkg remove PACKAGE ENTRY"},
  };
  return kKinds;
}

const char* severityName(Severity severity) {
  switch (severity) {
    case Severity::Note:
      return "note";
    case Severity::Warning:
      return "warning";
    case Severity::Error:
      break;
  }
  return "error";
}

void Findings::add(const std::string& id, const std::string& entry,
                   std::optional<std::uint64_t> offset, const std::string& text) {
  const auto& kinds = findingKinds();
  const auto kind =
      std::find_if(kinds.begin(), kinds.end(), [&](const FindingKind& k) { return id == k.id; });
  if (kind == kinds.end()) throw std::logic_error("no finding " + id);
  fFindings.push_back({*kind, entry, offset, text});
}

std::size_t Findings::count(Severity severity) const {
  return static_cast<std::size_t>(
      std::count_if(fFindings.begin(), fFindings.end(),
                    [&](const Finding& finding) { return finding.kind.severity == severity; }));
}
