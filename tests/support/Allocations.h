#pragma once

#include <cstddef>

// The operators new and delete of a test program that links test_allocations: they count, and new
// fails on demand, for the libraries that the program loads, too.
namespace allocations {

enum class Shortage { Once, FromThereOn };

// From now on the allocations of this thread are counted, from 1, and the `n`-th raises
// std::bad_alloc, once or with all that follow. With 0 none does.
void fail(long n, Shortage shortage = Shortage::Once) noexcept;
// Ends that; returns how many allocations there were.
long endShortage() noexcept;
// Whether one that failed since then was asked for without an exception, as std::nothrow does.
bool failedQuietly() noexcept;

// Blocks that were allocated and not freed since the program began.
long liveBlocks() noexcept;
// Bytes that are held now, and the most that were since resetPeak().
std::size_t bytesHeld() noexcept;
std::size_t bytesAtPeak() noexcept;
void resetPeak() noexcept;

}  // namespace allocations
