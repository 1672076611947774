#pragma once

#include <string>

#include "SpoolFileSystem.h"
#include "ZipLayout.h"

// Writes every entry of a package anew into the empty file `path`, in their order and with their
// data as it is stored: for records that the library would not copy whole. Raises tools::Failure
// and the library's exceptions.
void rebuildPackage(const ziplayout::Layout& old, const std::string& path, SpoolFileSystem& files);

// Puts right what the library sets to its own in each record that it copies: the system that the
// attributes are for, the version needed, the attributes, that a
// name is not UTF-8, and the size of encrypted data.
void restoreHeaders(const ziplayout::Layout& old, const std::string& path);

// Puts the recorded size of the directory right: the library settles it before a record gets its
// blocks of Zip64, type and creator.
void restoreDirectorySize(const std::string& path);
