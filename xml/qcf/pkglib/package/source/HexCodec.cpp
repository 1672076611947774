#include "package/source/HexCodec.h"

namespace pkg::hex {

namespace {

constexpr char kDigits[] = "0123456789ABCDEF";

unsigned int digitValue(char digit) {
  const auto code = static_cast<unsigned int>(static_cast<unsigned char>(digit));
  return code < 65 ? code - 0x30 : code - 0x37;
}

}  // namespace

void encode(const void* data, std::size_t size, char* text) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  for (std::size_t i = 0; i < size; ++i) {
    text[2 * i] = kDigits[bytes[i] >> 4];
    text[2 * i + 1] = kDigits[bytes[i] & 15];
  }
}

unsigned char decodePair(char high, char low) {
  return static_cast<unsigned char>(digitValue(high) << 4 | digitValue(low));
}

void decode(const char* text, std::size_t count, void* data) {
  auto* bytes = static_cast<unsigned char*>(data);
  for (std::size_t i = 0; i < count; ++i)
    bytes[i] = decodePair(text[2 * i], text[2 * i + 1]);
}

}  // namespace pkg::hex
