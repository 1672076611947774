#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "package/source/ZipImpl.h"

// The linker has the library ask this program for the time, and tell it of each look at the zone.

namespace {

struct Clock {
  bool isSet = false;
  std::time_t now = 0;
  int looks = 0;  // at the zone
};
Clock gClock;

}  // namespace

extern "C" std::time_t __real_time(std::time_t* out);  // NOLINT(bugprone-reserved-identifier)
extern "C" std::time_t __wrap_time(
    std::time_t* out) noexcept;  // NOLINT(bugprone-reserved-identifier)
extern "C" std::time_t __wrap_time(std::time_t* out) noexcept {
  if (!gClock.isSet) return __real_time(out);
  if (out != nullptr) *out = gClock.now;
  return gClock.now;
}

extern "C" void __real_tzset();  // NOLINT(bugprone-reserved-identifier)
extern "C" void __wrap_tzset();  // NOLINT(bugprone-reserved-identifier)
extern "C" void __wrap_tzset() {
  ++gClock.looks;
  __real_tzset();
}

namespace {

using pkg::zip::dostime;
using pkg::zip::getDOSTime;

class DosClock : public testing::Test {
protected:
  static void setZone(const char* zone) {
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  static pkg::zip::DOSTime at(std::time_t now) {
    gClock = {true, now, 0};
    return getDOSTime();
  }
  void SetUp() override { setZone("UTC"); }
  void TearDown() override {
    gClock = {};
    ::unsetenv("TZ");
    ::tzset();
  }
};

constexpr std::time_t k1980 = 315532800;  // 1 January 1980, 00:00 UTC
constexpr std::time_t k2000 = 946684800;

TEST_F(DosClock, AnEvenSecondIsItself) {
  EXPECT_EQ(at(k2000), dostime(2000, 1, 1, 0, 0, 0));
  EXPECT_EQ(at(k2000 + 58), dostime(2000, 1, 1, 0, 0, 58));
}

TEST_F(DosClock, AnOddSecondIsRoundedUp) {
  EXPECT_EQ(at(k2000 + 1), dostime(2000, 1, 1, 0, 0, 2));
  EXPECT_EQ(at(k2000 + 59), dostime(2000, 1, 1, 0, 1, 0));
  EXPECT_EQ(at(k2000 - 1), dostime(2000, 1, 1, 0, 0, 0)) << "into the next year";
}

TEST_F(DosClock, TheFirstMomentIsTheStartOf1980) {
  EXPECT_EQ(at(k1980), 0x00210000u);
  EXPECT_EQ(at(k1980 - 1), 0x00210000u) << "rounded before it is looked at";
  EXPECT_EQ(at(k1980 - 2), 0x00150000u);
  EXPECT_EQ(at(0), 0x00150000u);
  EXPECT_EQ(at(-1000), 0x00150000u);
}

TEST_F(DosClock, TheLocalTimeZoneCounts) {
  setZone("IST-5:30");
  EXPECT_EQ(at(k2000), dostime(2000, 1, 1, 5, 30, 0));
  setZone("PST8");
  EXPECT_EQ(at(k2000), dostime(1999, 12, 31, 16, 0, 0));
  EXPECT_EQ(at(k1980), 0x00150000u) << "still 1979 there";
}

TEST_F(DosClock, SummerTimeCounts) {
  setZone("AAA0BBB,M3.5.0,M10.5.0");
  EXPECT_EQ(at(961027200), dostime(2000, 6, 15, 1, 0, 0));
}

// What localtime() says of a moment in the zone of the system.
pkg::zip::DOSTime inSystemZone(std::time_t when) {
  ::unsetenv("TZ");
  const std::tm local = *std::localtime(&when);
  return dostime(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                 local.tm_sec);
}

TEST_F(DosClock, WithoutAZoneNamedEachMomentIsThatOfTheSystemsZone) {
  for (const std::time_t when :
       {k2000, k2000, k2000 + 2, k2000, k1980, std::time_t{0}, k2000 + 4}) {
    EXPECT_EQ(at(when), inSystemZone(when)) << when;
  }
  EXPECT_EQ(at(k2000 + 3), inSystemZone(k2000 + 4));
}

TEST_F(DosClock, TheFileOfTheSystemsZoneIsLookedAtOnceInTwoSeconds) {
  inSystemZone(k2000);
  const auto looksAt = [](std::time_t now) {
    at(now);
    return gClock.looks;
  };
  at(k1980);
  EXPECT_EQ(looksAt(k2000 - 1), 1);
  EXPECT_EQ(looksAt(k2000), 0);
  EXPECT_EQ(looksAt(k2000 + 1), 1);
  EXPECT_EQ(looksAt(k2000), 1) << "also back";
  setZone("UTC");
  EXPECT_EQ(looksAt(k2000), 1) << "where TZ names one, each time";
}

TEST_F(DosClock, AZoneThatIsNamedOrTakenBackWithinAMomentCountsAtOnce) {
  const pkg::zip::DOSTime systems = inSystemZone(k2000);
  EXPECT_EQ(at(k2000), systems);
  setZone("IST-5:30");
  EXPECT_EQ(at(k2000), dostime(2000, 1, 1, 5, 30, 0));
  setZone("PST8");
  EXPECT_EQ(at(k2000), dostime(1999, 12, 31, 16, 0, 0));
  ::unsetenv("TZ");
  EXPECT_EQ(at(k2000), systems);
}

TEST_F(DosClock, AMomentThatNoCalendarHoldsIsTheEarliest) {
  if (sizeof(std::time_t) < 8) GTEST_SKIP() << "every moment of this system has a year";
  EXPECT_EQ(at(static_cast<std::time_t>(std::int64_t{1} << 60)), 0x00150000u);
}

TEST_F(DosClock, TheSystemsClockIsTheOneThatIsRead) {
  gClock = {};
  const std::time_t before = std::time(nullptr);
  const pkg::zip::DOSTime now = getDOSTime();
  const std::time_t after = std::time(nullptr);
  EXPECT_GE(now, at(before));
  EXPECT_LE(now, at(after));
}

}  // namespace
