#pragma once

#include <string_view>

namespace turns {

// How many times as fast as `against` this project has to be at the work of a row; 0 where nothing
// is asked.
double target(std::string_view row, std::string_view against);

// By how much its peak memory may be above that of the leanest peer, in KiB.
constexpr long kMemoryAllowance = 8 * 1024;

}  // namespace turns
