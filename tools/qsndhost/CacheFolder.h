#pragma once

#include <string>

// The importer does not tell why a document's audio ended early. Deflated audio has to be inflated
// into the user's cache folder first: says why that cannot be done, by trying to get as much room
// there; empty where it can, or need not be. `document` is the file that was being read.
std::string cacheFault(const std::string& document);
