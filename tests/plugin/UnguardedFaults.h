#pragma once

#include <string>

// The audio entry of a package as far as it can be read, at most its first MiB.
std::string audioOf(const std::string& path);

// The two faults that the importer does not guard against: a block align of 0 when the length is
// computed, and frames of no bytes (no channels, or fewer than 8 bits a sample) when the layout is
// asked for. Errs on the side of leaving a document out: audio that cannot be read whole is looked
// at as far as it goes.
bool dividesByZero(const std::string& audio);
