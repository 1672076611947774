#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "PackageRows.h"

// Prototypes of creating and appending on zlib and stdio, written plainly and with nothing of the
// library in them, under the same terms: local time, the memory level of its deflate, a state for
// each entry, blocks of 4,096 bytes, and sizes and checksum that come into the header behind the
// data. An append has a temporary file for the new data in a folder that it looks for, a directory
// read record by record into objects, the new name sought among theirs, an old directory that is
// cut off first, and a new one of copies, each with the time that goes by its name. No Zip64. Raise
// std::runtime_error when a file cannot be opened.

inline constexpr const char* kPlainZip = "zlib and stdio";

// For the rest of this process the heap keeps what a state of deflate takes, rather than give it
// back to the system and fetch it anew for each entry.
void keepHeap();

void createPlainZip(const std::string& path, const Shape& shape);

// Appends content(1), 1,024 bytes of it, deflated.
void appendPlainZip(const std::string& path, const std::string& name);

using Found = std::function<void(std::string_view name, std::uint32_t size)>;

// Opens and walks with local headers read, and keeps until it returns what the library's packages
// keep: the records, an object of each entry with its name and what it needs in an update, and a
// map of these by name.
void walkPlainZip(const std::string& path, const Found& found);
