#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "PackageUpdate.h"
#include "Texts.h"
#include "ZipLayout.h"

// What the library would lose or damage in a package, told before anything is written.

// Raises tools::Failure for a package that the library cannot read, or not change without loss.
void requireChangeable(const ziplayout::Layout& layout, const Change& change);

bool hasDuplicates(const ziplayout::Layout& layout);

// Whether a raw copy by the library would come out damaged, so that the record has to be written
// anew.
bool copyWouldDamage(const ziplayout::Entry& entry);

// Raises tools::Failure for a damaged copy that writing the record anew does not help.
void requireRewritable(const ziplayout::Layout& layout, const ziplayout::Entry& entry);

// Whether its sizes need Zip64.
bool isLarge(const ziplayout::Entry& entry);
// Such as programs write that deflate whatever comes.
bool isEmptyButStoredOtherwise(const ziplayout::Entry& entry);

// What an entry must be like after a change.
struct Expected {
  std::uint64_t size = 0;
  std::uint32_t crc = 0;
  std::optional<std::uint64_t> compressedSize;  // of one that was copied
  std::optional<DOSMoment> modified;            // of one that was not
};
using Expectation = std::map<std::string, Expected>;

// Raises tools::Failure unless the file holds the expected entries, each with headers that agree
// and data inside the file, which is whole where it was deflated anew, and a directory of the
// recorded size.
void verifyPackage(const std::string& path, const std::string& shownPath,
                   const Expectation& expected, const std::string& comment);
