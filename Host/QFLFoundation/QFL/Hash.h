#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "QFL/Visibility.h"

namespace QFL {

// A running hash of 128 bits.
struct HashValue {
  std::array<std::uint32_t, 4> words{};
};

class QFL_API MixHash {
public:
  // Mixes `size` bytes into `hash`. The same bytes in the same order give the same hash, on every
  // machine.
  static void MixInData(HashValue& hash, const void* data, std::size_t size) noexcept;
};

}  // namespace QFL
