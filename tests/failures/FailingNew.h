#pragma once

// A global operator new that fails on demand. Linked with FailingNew.cpp, which replaces the
// operators of the program.
namespace failures {

enum class Shortage { Once, FromThereOn };

// From now on allocations are counted, from 1, and the `n`-th raises std::bad_alloc. With 0 none
// does.
void failAllocation(long n, Shortage shortage) noexcept;
// Ends that; returns how many allocations there were.
long endShortage() noexcept;
// Blocks that were allocated and not freed since the program began.
long liveBlocks() noexcept;

}  // namespace failures
