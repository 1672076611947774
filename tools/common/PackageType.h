#pragma once

#include <string>

namespace tools {

// What a package's type must look like; empty for a good one, else what is wrong.
std::string typeFault(const std::string& type);

}  // namespace tools
