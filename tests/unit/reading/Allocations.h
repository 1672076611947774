#pragma once

#include <cstddef>

// What operator new has handed out in this program, in bytes. Linked with Allocations.cpp, which
// replaces the operators.
namespace reading {

// Bytes that are held now, and the most that were since resetPeak().
std::size_t bytesHeld() noexcept;
std::size_t bytesAtPeak() noexcept;
void resetPeak() noexcept;

}  // namespace reading
