#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "qvacore/Visibility.h"

namespace qvacore::utility {

// A globally unique identifier.
class QVACORE_API Guid {
public:
  Guid(std::uint32_t data1, std::uint16_t data2, std::uint16_t data3,
       const std::array<std::uint8_t, 8>& data4);

  // 36 characters: lower-case hexadecimal digits in groups of 8, 4, 4, 4 and 12, with "-" between
  // them.
  std::u16string AsString() const;

private:
  std::uint32_t fData1;
  std::uint16_t fData2;
  std::uint16_t fData3;
  std::array<std::uint8_t, 8> fData4;
};

}  // namespace qvacore::utility
