#pragma once

#include <string>

// What the importer makes of a document. The two faults are divisions that it does not guard: a
// block align of 0 when the length is computed, and frames of no bytes (no channels, or fewer than
// 8 bits a sample) when the layout is asked for.
enum class Import { Refused, FaultsInOpen, FaultsInLayout, Opened };

Import importOf(const std::string& path);
