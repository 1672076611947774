#include <climits>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "package/detail/BasePkgHexStrings.h"

namespace {

using pkg::BasePkgHexStrings;
using pkg::IPkgHexStrings;

IPkgHexStrings<>& hex() {
  return *BasePkgHexStrings<>::getInstance();
}

template <class Number>
Number decoded(const std::string& text) {
  Number value = 0x55;
  Number& same = hex().hexStringToI(text, value);
  EXPECT_EQ(&same, &value);
  return value;
}

TEST(BasePkgHexStrings, ThereIsOneInstance) {
  EXPECT_EQ(BasePkgHexStrings<>::getInstance(), BasePkgHexStrings<>::getInstance());
}

TEST(BasePkgHexStrings, BytesBecomePairsOfUpperCaseDigits) {
  EXPECT_EQ(hex().encodeHexString("\x00\xAB", 2), "00AB");
  EXPECT_EQ(hex().encodeHexString("", 0), "");
  EXPECT_EQ(hex().encodeHexString(nullptr, 0), "");
  const std::string many(10000, '\x5C');
  EXPECT_EQ(hex().encodeHexString(many.data(), 10000).size(), 20000u);
}

TEST(BasePkgHexStrings, NumbersGoInMemoryOrder) {
  EXPECT_EQ(hex().iToHexString(static_cast<unsigned short>(0x1234)), "3412");
  EXPECT_EQ(hex().iToHexString(static_cast<short>(0x1234)), "3412");
  EXPECT_EQ(hex().iToHexString(static_cast<short>(-2)), "FEFF");
  EXPECT_EQ(hex().iToHexString('A'), "41");
  EXPECT_EQ(hex().iToHexString(static_cast<unsigned char>(0xF0)), "F0");
  EXPECT_EQ(hex().iToHexString(0x01020304), "04030201");
  EXPECT_EQ(hex().iToHexString(0xA1B2C3D4u), "D4C3B2A1");
  EXPECT_EQ(hex().iToHexString(-1LL), "FFFFFFFFFFFFFFFF");
  EXPECT_EQ(hex().iToHexString(0x1122334455667788ULL), "8877665544332211");
}

TEST(BasePkgHexStrings, EveryTypeComesBack) {
  const auto thereAndBack = [](auto value) {
    auto back = value;
    back = 0;
    return hex().hexStringToI(hex().iToHexString(value), back) == value;
  };
  EXPECT_TRUE(thereAndBack(static_cast<char>(CHAR_MIN)));
  EXPECT_TRUE(thereAndBack(static_cast<unsigned char>(UCHAR_MAX)));
  EXPECT_TRUE(thereAndBack(static_cast<short>(SHRT_MIN)));
  EXPECT_TRUE(thereAndBack(static_cast<unsigned short>(USHRT_MAX)));
  EXPECT_TRUE(thereAndBack(INT_MIN));
  EXPECT_TRUE(thereAndBack(UINT_MAX));
  EXPECT_TRUE(thereAndBack(LLONG_MIN));
  EXPECT_TRUE(thereAndBack(ULLONG_MAX));
}

TEST(BasePkgHexStrings, AWordDecodesInMemoryOrder) {
  EXPECT_EQ(decoded<unsigned short>("3412"), 0x1234);
}

TEST(BasePkgHexStrings, AnEmptyTextIsZero) {
  EXPECT_EQ(decoded<char>(""), 0);
  EXPECT_EQ(decoded<unsigned long long>(""), 0u);
}

TEST(BasePkgHexStrings, BytesThatTheTextDoesNotReachAreZero) {
  EXPECT_EQ(decoded<int>("FF"), 255);
  EXPECT_EQ(decoded<long long>("0102"), 0x0201);
}

TEST(BasePkgHexStrings, TextBehindTheWidthIsIgnored) {
  EXPECT_EQ(decoded<char>("FF00"), static_cast<char>(0xFF));
  EXPECT_EQ(decoded<unsigned short>("3412FFFF"), 0x1234);
}

TEST(BasePkgHexStrings, AnOddLastCharacterIsIgnored) {
  EXPECT_EQ(decoded<unsigned short>("F"), 0);
  EXPECT_EQ(decoded<unsigned short>("34F"), 0x34);
}

TEST(BasePkgHexStrings, ANulEndsTheTextOfANumber) {
  EXPECT_EQ(decoded<unsigned int>(std::string("34\0"
                                              "12",
                                              5)),
            0x34u);
  EXPECT_EQ(decoded<unsigned int>(std::string("3\0"
                                              "12",
                                              4)),
            0u);
}

TEST(BasePkgHexStrings, LettersInLowerCaseDecodeInTheHighPlaceOnly) {
  EXPECT_EQ(decoded<unsigned char>("a0"), 0xA0);
  EXPECT_EQ(decoded<unsigned char>("0a"), 0x2A);
}

TEST(BasePkgHexStrings, DecodingIntoNothingCountsTheBytes) {
  unsigned long size = 99;
  EXPECT_EQ(hex().decodeHexString("0123456", nullptr, size), 3u);
  EXPECT_EQ(size, 99u);
  EXPECT_EQ(hex().decodeHexString("", nullptr, size), 0u);
}

TEST(BasePkgHexStrings, DecodingFillsWhatThereIsRoomFor) {
  char bytes[4] = {'x', 'x', 'x', 'x'};
  unsigned long size = 2;
  EXPECT_EQ(hex().decodeHexString("41424344", bytes, size), 4u);
  EXPECT_EQ(size, 2u);
  EXPECT_EQ(std::string(bytes, 4), "ABxx");
}

TEST(BasePkgHexStrings, DecodingAShortTextTellsHowMuchCame) {
  char bytes[8] = {};
  unsigned long size = 8;
  EXPECT_EQ(hex().decodeHexString("41424", bytes, size), 2u);
  EXPECT_EQ(size, 2u);
  EXPECT_EQ(std::string(bytes, 3), std::string("AB\0", 3));
  size = 0;
  EXPECT_EQ(hex().decodeHexString("4142", bytes, size), 2u);
  EXPECT_EQ(size, 0u);
}

}  // namespace
