#pragma once

#include <cstdint>

// The host's function tables for audio buffers, as an audio handler sees them. Operations without a
// name are never called; they hold the others at their places.

struct HostBuffer;  // opaque
using HostBufferRef = HostBuffer*;
using HostOperation = void (*)();

struct HostBufferSuite {
  void (*release)(HostBufferRef buffer);
  // Returns 0 and sets `memory` on success.
  std::int32_t (*getMemory)(HostBufferRef buffer, std::int32_t access, void** memory);
};

struct HostBufferCreatorSuite {
  HostOperation notUsed[2];
  // Returns 0 and sets `buffer`, which the caller releases, on success. `size` is in bytes; the
  // meaning of the other arguments is the host's.
  std::int32_t (*create)(HostBufferRef* buffer, std::int32_t, std::uint32_t, std::int32_t,
                         std::int32_t, std::int32_t, std::int32_t, std::uint32_t size);
};

struct HostBufferCacheSuite {
  HostOperation notUsed[4];
  // `key` is 36 characters and a NUL.
  std::int32_t (*storeByName)(const char* key, HostBufferRef buffer);
  // Returns 0 and sets `buffer`, which the caller releases, on success.
  std::int32_t (*findByName)(const char* key, HostBufferRef* buffer);
};
