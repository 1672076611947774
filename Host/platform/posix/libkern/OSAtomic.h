#pragma once

#include <cstdint>

// Adds `amount` to `*value` with a full barrier and returns the new value.
inline std::int32_t OSAtomicAdd32Barrier(std::int32_t amount, volatile std::int32_t* value) {
  return __atomic_add_fetch(value, amount, __ATOMIC_SEQ_CST);
}
