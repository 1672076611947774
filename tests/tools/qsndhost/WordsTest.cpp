#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "qsndhost/Words.h"

namespace {

hostkit::AudioInfo audioOf(float rate, std::int64_t frames) {
  hostkit::AudioInfo info{};
  info.sampleRate = rate;
  info.frames = frames;
  return info;
}

TEST(Words, AShortDurationLeavesOutWhatIsZeroInFront) {
  EXPECT_EQ(shortDurationText(audioOf(48000, 24)), "0.5 ms");
  EXPECT_EQ(shortDurationText(audioOf(8000, 40000)), "0:05.000");
  EXPECT_EQ(shortDurationText(audioOf(8000, 8000 * 754)), "12:34.000");
  EXPECT_EQ(shortDurationText(audioOf(8000, 8000 * 5400)), "1:30:00.000");
  EXPECT_EQ(shortDurationText(audioOf(8000, 8000 * 36000)), "10:00:00.000");
  EXPECT_EQ(shortDurationText(audioOf(0, 5)), "unknown");
}

TEST(Words, ADurationThatIsRoundedUpToAnHourOrASecondIsTheWhole) {
  EXPECT_EQ(shortDurationText(audioOf(2500, 2500 * 3600 - 1)), "1:00:00.000");
  EXPECT_EQ(shortDurationText(audioOf(2500, 2499)), "0:01.000");
}

TEST(Words, ATextIsCutBetweenCharacters) {
  EXPECT_EQ(shortened("abc", 3), "abc");
  EXPECT_EQ(shortened("abcdefg", 6), "abc…");
  EXPECT_EQ(shortened("aäöü", 6), "aä…");
  EXPECT_EQ(shortened("äöüx", 6), "ä…");
}

}  // namespace
