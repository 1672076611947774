#pragma once

#include <string>

namespace tools {

// Has the file `scratch` removed when a hang-up, an interrupt or a request to end ends the program;
// an empty name for none. One file at a time: a program writes one output at a time.
void removeOnSignal(const std::string& scratch);
// Removes it now, for a program that ends in another way.
void removeScratch() noexcept;

}  // namespace tools
