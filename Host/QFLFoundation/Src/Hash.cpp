#include "QFL/Hash.h"

namespace QFL {
namespace {

constexpr std::uint32_t rotate(std::uint32_t value, int bits) {
  return (value << bits) | (value >> (32 - bits));
}

// Spreads one byte over all four words: each word feeds the next.
void mixInByte(std::array<std::uint32_t, 4>& words, std::uint32_t byte) {
  words[0] = (words[0] ^ byte ^ words[3]) * 0x01000193u;
  words[1] = rotate(words[1] + words[0], 13) * 0x85EBCA6Bu;
  words[2] = rotate(words[2] ^ words[1], 17) * 0xC2B2AE35u;
  words[3] = rotate(words[3] + words[2], 11) + 0x9E3779B9u;
}

}  // namespace

void MixHash::MixInData(HashValue& hash, const void* data, std::size_t size) noexcept {
  const auto* bytes = static_cast<const unsigned char*>(data);
  for (std::size_t i = 0; i < size; ++i)
    mixInByte(hash.words, bytes[i]);
}

}  // namespace QFL
