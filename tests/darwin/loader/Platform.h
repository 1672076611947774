#pragma once

#include <string>

// What the bundle calls, by its platform's name without the leading underscore: this process's own
// function where the two systems agree on it, a stand-in where they do not, null where there is
// neither.
void* resolvePlatformName(const std::string& name);
