#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "UpdateRules.h"
#include "ZipLayout.h"

// Writes a package into the empty file `path` with its data as it lies, but for what stands in
// front of its first entry, and a new directory for those records that the library would not copy
// whole: without Zip64 that nothing needs, with empty entries stored, and one of each name. `wrote`
// is told of each piece. Raises tools::Failure.
void writePlainly(const ziplayout::Layout& old, const std::string& path,
                  const std::function<void(int size)>& wrote);

// How much of the file stands in front of its first entry.
std::uint64_t leadingBytes(const ziplayout::Layout& layout);

// Puts right what the library sets to its own in each record that it copies: the system that the
// attributes are for, the version needed, the attributes, that a name is not UTF-8, and the size of
// encrypted data.
void restoreHeaders(const ziplayout::Layout& old, const std::string& path);

// Gives entries the dates that are expected of them: those that the library makes by itself, and
// folders, have that of the run, rounded up.
void restoreDates(const Expectation& expected, const std::string& path);

// Puts the recorded size of the directory right: the library settles it before a record gets its
// blocks of Zip64, type and creator.
void restoreDirectorySize(const std::string& path);
