#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "EntryData.h"
#include "ZipLayout.h"

enum class Severity {
  Note,     // worth knowing; programs cope
  Warning,  // some programs will not do what is meant
  Error     // data or rules of the container are broken
};

// What a finding is, wherever it is found. Identifiers are stable: scripts go by them.
struct FindingKind {
  const char* id;
  Severity severity;
  const char* advice;
};

struct Finding {
  FindingKind kind;
  std::string entry;  // empty for the package itself
  std::optional<std::uint64_t> offset;
  std::string text;
};

class Findings {
public:
  // `id` is one of findingKinds().
  void add(const std::string& id, const std::string& entry, std::optional<std::uint64_t> offset,
           const std::string& text);
  const std::vector<Finding>& all() const noexcept { return fFindings; }
  std::size_t count(Severity severity) const;

private:
  std::vector<Finding> fFindings;
};

const std::vector<FindingKind>& findingKinds();
const char* severityName(Severity severity);

// The entry that tells the type.
void checkType(const ziplayout::Layout& layout, Findings& findings);
// End records, directory, and how the parts lie in the file.
void checkContainer(const ziplayout::Layout& layout, Findings& findings);
// Each entry by itself: names, headers, descriptors. Reads no data.
void checkEntries(const ziplayout::Layout& layout, Findings& findings);
// The names taken together.
void checkNames(const ziplayout::Layout& layout, Findings& findings);
// The data of an entry against what is recorded; `read` sees it on the way.
void checkData(const ziplayout::Layout& layout, const ziplayout::Entry& entry, Findings& findings,
               const ziplayout::Sink& read);
// The properties document.
void checkProperties(const ziplayout::Layout& layout, Findings& findings);
