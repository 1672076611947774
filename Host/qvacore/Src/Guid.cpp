#include "qvacore/Guid.h"

namespace qvacore::utility {
namespace {

// The low `digits` hexadecimal digits of `value`, most significant first.
void appendHex(std::u16string& text, std::uint32_t value, int digits) {
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
    text.push_back(u"0123456789abcdef"[(value >> shift) & 0xF]);
  }
}

}  // namespace

Guid::Guid(std::uint32_t data1, std::uint16_t data2, std::uint16_t data3,
           const std::array<std::uint8_t, 8>& data4)
    : fData1(data1), fData2(data2), fData3(data3), fData4(data4) {}

std::u16string Guid::AsString() const {
  std::u16string text;
  text.reserve(36);
  appendHex(text, fData1, 8);
  text.push_back(u'-');
  appendHex(text, fData2, 4);
  text.push_back(u'-');
  appendHex(text, fData3, 4);
  for (std::size_t i = 0; i < fData4.size(); ++i) {
    if (i == 0 || i == 2) text.push_back(u'-');
    appendHex(text, fData4[i], 2);
  }
  return text;
}

}  // namespace qvacore::utility
