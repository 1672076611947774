#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "package/detail/RecordDateTimes.h"

namespace {

boost::shared_array<char> named(const std::string& name) {
  boost::shared_array<char> text(new char[name.size() + 1]);
  std::memcpy(text.get(), name.c_str(), name.size() + 1);
  return text;
}

TEST(RecordDateTimes, AreFoundByNameInWhateverOrderTheyCame) {
  pkg::RecordDateTimes times;
  EXPECT_EQ(times.find("a"), nullptr);
  for (const char* name : {"m", "b", "z", "b/", "a"})
    times.add(named(name), {static_cast<std::uint16_t>(name[0]), 7});
  for (const char* name : {"a", "b", "b/", "m", "z"}) {
    ASSERT_NE(times.find(name), nullptr) << name;
    EXPECT_EQ(times.find(name)->date, name[0]);
    EXPECT_EQ(times.find(name)->time, 7);
  }
  for (const char* name : {"", "aa", "c", "zz"})
    EXPECT_EQ(times.find(name), nullptr) << name;
}

TEST(RecordDateTimes, TheLastRecordOfANameCounts) {
  pkg::RecordDateTimes times;
  for (std::uint16_t n = 1; n <= 400; ++n) {
    times.add(named("twice"), {n, n});
    times.add(named("other" + std::to_string(n)), {0, 0});
    EXPECT_EQ(times.find("twice")->date, n) << "also when one is added after a search";
  }
}

TEST(RecordDateTimes, ANameEndsAtItsFirstNUL) {
  pkg::RecordDateTimes times;
  times.add(named(std::string("cut\0off", 7)), {1, 2});
  EXPECT_NE(times.find("cut"), nullptr);
}

TEST(RecordDateTimes, OnlyTheFirstAreKept) {
  pkg::RecordDateTimes times;
  times.add(named("a"), {1, 1});
  times.add(named("b"), {2, 2});
  const std::size_t count = times.count();
  times.add(named("a"), {3, 3});
  times.add(named("c"), {4, 4});
  EXPECT_EQ(times.find("a")->date, 3);
  times.keepFirst(count);
  EXPECT_EQ(times.count(), count);
  EXPECT_EQ(times.find("a")->date, 1);
  EXPECT_EQ(times.find("b")->date, 2);
  EXPECT_EQ(times.find("c"), nullptr);
  times.keepFirst(0);
  EXPECT_EQ(times.find("a"), nullptr);
}

}  // namespace
