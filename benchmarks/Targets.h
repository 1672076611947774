#pragma once

#include <string_view>

namespace turns {

// How many times as fast as `against` this project has to be at the work of a row; 0 where nothing
// is asked.
double target(std::string_view row, std::string_view against);

// By how much its peak memory may be above that of the leanest peer, in KiB.
constexpr long kMemoryAllowance = 8 * 1024;

// By how much peak memory may grow with the size of an entry, in KiB: not at all, but for the pages
// that the kernel counts late, some 60 on each processor.
constexpr double kMostGrowth = 512;

}  // namespace turns
