#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "package/source/ExtraField.h"

#include "support/ZipBytes.h"

namespace {

using pkg::zip::ExtraFieldWalk;
using zipbytes::extraBlock;
using zipbytes::u16;

// Id and what is there of the body of each block. The bytes lie in a buffer of exactly their size,
// so that a sanitizer sees a step too far.
using Blocks = std::vector<std::pair<int, std::string>>;

Blocks walk(const std::string& field, std::size_t length) {
  const auto buffer = std::make_unique<char[]>(field.size());
  field.copy(buffer.get(), field.size());
  Blocks blocks;
  ExtraFieldWalk walk(buffer.get(), length, field.size());
  while (walk.next())
    blocks.emplace_back(walk.id(), std::string(walk.body(), walk.bodyAvailable()));
  return blocks;
}

Blocks walk(const std::string& field) {
  return walk(field, field.size());
}

TEST(ExtraField, BlocksComeInOrderWithTheirBodies) {
  const std::string field =
      extraBlock(0x0001, "12345678") + extraBlock(0x2705, "") + extraBlock(0xFFFE, "x");
  EXPECT_EQ(walk(field), (Blocks{{0x0001, "12345678"}, {0x2705, ""}, {0xFFFE, "x"}}));
}

TEST(ExtraField, NoFieldHasNoBlocks) {
  EXPECT_FALSE(ExtraFieldWalk(nullptr, 0).next());
  EXPECT_FALSE(ExtraFieldWalk(nullptr, 20).next());
  EXPECT_TRUE(walk("").empty());
}

TEST(ExtraField, FewerThanFourBytesAreNoBlock) {
  EXPECT_TRUE(walk("\x01").empty());
  EXPECT_TRUE(walk(std::string("\x01\x00\x00", 3)).empty());
  EXPECT_EQ(walk(extraBlock(7, "ab") + "xyz"), (Blocks{{7, "ab"}}));
}

TEST(ExtraField, TheRestIsWhatIsTooShortForABlock) {
  const auto rest = [](std::string field) {
    ExtraFieldWalk walk(field.data(), field.size());
    while (walk.next()) {
    }
    return walk.rest() == 0 ? "" : std::string(walk.block(), walk.rest());
  };
  EXPECT_EQ(rest("xyz"), "xyz");
  EXPECT_EQ(rest(extraBlock(7, "ab") + "z"), "z");
  EXPECT_EQ(rest(extraBlock(7, "ab")), "");
  EXPECT_EQ(rest(u16(2) + u16(100) + "cut"), "");
  ExtraFieldWalk none(nullptr, 20);
  EXPECT_FALSE(none.next());
  EXPECT_EQ(none.rest(), 0u);
}

TEST(ExtraField, ABlockOfFourBytesIsABlock) {
  EXPECT_EQ(walk(extraBlock(7, "")), (Blocks{{7, ""}}));
  EXPECT_EQ(walk(std::string(8, '\0')), (Blocks{{0, ""}, {0, ""}}));
}

TEST(ExtraField, ABodyThatRunsPastTheEndIsTheLastAndIsCut) {
  EXPECT_EQ(walk(extraBlock(1, "a") + u16(2) + u16(100) + "rest"), (Blocks{{1, "a"}, {2, "rest"}}));
  EXPECT_EQ(walk(u16(3) + u16(0xFFFF)), (Blocks{{3, ""}}));
}

TEST(ExtraField, ABodyThatEndsAtTheEndIsTheLast) {
  EXPECT_EQ(walk(u16(9) + u16(4) + "full"), (Blocks{{9, "full"}}));
}

TEST(ExtraField, ALengthShorterThanTheBufferEndsTheWalk) {
  const std::string field = extraBlock(1, "ab") + extraBlock(2, "cd");
  EXPECT_EQ(walk(field, 6), (Blocks{{1, "ab"}}));
  EXPECT_EQ(walk(field, 9), (Blocks{{1, "ab"}}));
  EXPECT_EQ(walk(field, 10), (Blocks{{1, "ab"}, {2, "cd"}}))
      << "the body may lie beyond the length";
}

TEST(ExtraField, ALengthBeyondTheBufferStopsAtTheBuffer) {
  const std::string field = extraBlock(1, "ab");
  EXPECT_EQ(walk(field, 22), (Blocks{{1, "ab"}}));
  EXPECT_EQ(walk(field + "xyz", 65535), (Blocks{{1, "ab"}}));
}

TEST(ExtraField, SizesAreThoseOfTheHeader) {
  std::string field = u16(0x0001) + u16(16) + "short";
  ExtraFieldWalk walk(field.data(), field.size());
  ASSERT_TRUE(walk.next());
  EXPECT_EQ(walk.bodySize(), 16);
  EXPECT_EQ(walk.totalSize(), 20u);
  EXPECT_EQ(walk.bodyAvailable(), 5u);
  EXPECT_EQ(walk.block(), field.data());
  EXPECT_EQ(walk.body(), field.data() + 4);
}

}  // namespace
