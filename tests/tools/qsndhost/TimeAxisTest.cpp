#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TimeAxis.h"

namespace {

using testing::ElementsAre;

std::vector<std::string> labels(double start, double span, double count) {
  std::vector<std::string> labels;
  for (const TimeMark& mark : timeMarks(start, span, count)) {
    if (!mark.label.empty()) labels.push_back(mark.label);
  }
  return labels;
}

TEST(TimeAxis, TheUnitGoesByTheSpan) {
  EXPECT_THAT(labels(0, 0.001, 4), ElementsAre("0.0 ms", "0.5 ms", "1.0 ms"));
  EXPECT_THAT(labels(0, 0.5, 5),
              ElementsAre("0 ms", "100 ms", "200 ms", "300 ms", "400 ms", "500 ms"));
  EXPECT_THAT(labels(0, 2, 4), ElementsAre("0.0 s", "0.5 s", "1.0 s", "1.5 s", "2.0 s"));
  EXPECT_THAT(labels(0, 59, 4), ElementsAre("0 s", "15 s", "30 s", "45 s"));
  EXPECT_THAT(labels(0, 60, 4), ElementsAre("0:00", "0:15", "0:30", "0:45", "1:00"));
  EXPECT_THAT(labels(0, 3599, 3), ElementsAre("0:00", "30:00"));
  EXPECT_THAT(labels(0, 7200, 4),
              ElementsAre("0:00:00", "0:30:00", "1:00:00", "1:30:00", "2:00:00"));
}

TEST(TimeAxis, AShortSpanLateInADocumentIsToldByTheClock) {
  EXPECT_THAT(labels(90, 1, 2), ElementsAre("1:30.0", "1:30.5", "1:31.0"));
  EXPECT_THAT(labels(3600, 0.02, 2), ElementsAre("1:00:00.00", "1:00:00.01", "1:00:00.02"));
}

TEST(TimeAxis, MillisecondsAreForTheFirstSecond) {
  EXPECT_THAT(labels(50, 0.1, 2), ElementsAre("50.00 s", "50.05 s", "50.10 s"));
  EXPECT_THAT(labels(0.8, 0.1, 2), ElementsAre("800 ms", "850 ms", "900 ms"));
}

TEST(TimeAxis, LabelsStandAtRoundTimesWhereverItBegins) {
  EXPECT_THAT(labels(0.37, 1, 2), ElementsAre("0.5 s", "1.0 s"));
  const auto marks = timeMarks(0.25, 0.5, 1);
  EXPECT_NEAR(marks.front().position, 0.1, 1e-9);  // the small mark at 0.3 s
}

TEST(TimeAxis, ThereAreNeverManyMoreLabelsThanAskedFor) {
  for (double span = 1e-5; span < 1e7; span *= 1.37) {
    for (const double count : {0.3, 1.0, 5.0, 12.0}) {
      const auto texts = labels(0, span, count);
      EXPECT_GE(texts.size(), 1u) << span;
      EXPECT_LE(static_cast<double>(texts.size()), std::max(count, 1.0) + 1.001) << span;
    }
  }
}

TEST(TimeAxis, MarksStayOnTheAxisAndInOrder) {
  for (double span = 1e-5; span < 1e7; span *= 2.1) {
    double last = -1;
    for (const TimeMark& mark : timeMarks(span / 3, span, 7)) {
      EXPECT_GT(mark.position, last);
      EXPECT_LE(mark.position, 1);
      last = mark.position;
    }
  }
}

TEST(TimeAxis, NoTimeIsOneMark) {
  EXPECT_THAT(labels(0, 0, 5), ElementsAre("0 ms"));
}

}  // namespace
