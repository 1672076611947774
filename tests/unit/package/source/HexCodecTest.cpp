#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "package/source/HexCodec.h"

namespace {

using namespace pkg;

std::string encoded(const std::string& bytes) {
  std::string text(2 * bytes.size(), '?');
  hex::encode(bytes.data(), bytes.size(), text.data());
  return text;
}

TEST(HexCodec, EveryByteGoesToTwoUpperCaseDigitsAndBack) {
  const char* const digits = "0123456789ABCDEF";
  for (int value = 0; value < 256; ++value) {
    const std::string byte(1, static_cast<char>(value));
    const std::string text{digits[value / 16], digits[value % 16]};
    EXPECT_EQ(encoded(byte), text);
    EXPECT_EQ(hex::decodePair(text[0], text[1]), value);
  }
}

TEST(HexCodec, EncodesBytesInMemoryOrderWithoutSeparators) {
  EXPECT_EQ(encoded(std::string("\x00\xAB\x10", 3)), "00AB10");
  EXPECT_EQ(encoded(""), "");
}

TEST(HexCodec, DecodesAsManyPairsAsAskedForAndNoMore) {
  char bytes[3] = {'x', 'x', 'x'};
  hex::decode("4142ZZ", 2, bytes);
  EXPECT_EQ(std::string(bytes, 3), "ABx");
  hex::decode("43", 0, bytes);
  EXPECT_EQ(std::string(bytes, 3), "ABx");
}

TEST(HexCodec, ALowerCaseHighDigitDecodes) {
  EXPECT_EQ(hex::decodePair('a', '0'), 0xA0);
  EXPECT_EQ(hex::decodePair('f', 'F'), 0xFF);
}

TEST(HexCodec, ALowerCaseLowDigitLeavesAStrayBit) {
  EXPECT_EQ(hex::decodePair('0', 'a'), 0x2A);
  EXPECT_EQ(hex::decodePair('1', 'f'), 0x3F);
  EXPECT_EQ(hex::decodePair('2', 'a'), 0x2A) << "where the stray bit is set anyway";
}

TEST(HexCodec, ACharacterBelowALetterCountsAsADecimalDigit) {
  EXPECT_EQ(hex::decodePair('0', ':'), 0x0A);  // 58 - 48
  EXPECT_EQ(hex::decodePair('0', '@'), 0x10);  // 64 - 48
  EXPECT_EQ(hex::decodePair(' ', '0'), 0x00);  // 32 - 48 shifted by 4, cut to a byte
  EXPECT_EQ(hex::decodePair('0', ' '), 0xF0);  // 32 - 48, cut to a byte
}

TEST(HexCodec, ALetterBehindFKeepsWhatFitsIntoTheByte) {
  EXPECT_EQ(hex::decodePair('G', '0'), 0x00);  // 71 - 55 is 16
  EXPECT_EQ(hex::decodePair('0', 'G'), 0x10);
  EXPECT_EQ(hex::decodePair('Z', 'Z'), 0x33);  // 35: 0x30 | 0x23
}

}  // namespace
