#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "package/source/NameTable.h"

namespace {

using pkg::NameTable;

class Names {
public:
  NameTable::Index& place(const std::string& name, std::uint32_t hash) {
    return fTable.place(hash, [&](NameTable::Index index) { return fNames[index] == name; });
  }
  void enter(const std::string& name, std::uint32_t hash) {
    fNames.push_back(name);
    place(name, hash) = static_cast<NameTable::Index>(fNames.size() - 1);
  }

private:
  std::vector<std::string> fNames;
  NameTable fTable{100};
};

TEST(NameTable, FindsWhatWasEnteredAndNothingElse) {
  Names names;
  for (int i = 0; i < 100; ++i)
    names.enter(std::to_string(i), pkg::hashOfName(std::to_string(i).c_str()));
  for (int i = 0; i < 200; ++i) {
    const std::string name = std::to_string(i);
    const NameTable::Index expected = i < 100 ? static_cast<NameTable::Index>(i) : NameTable::kNone;
    EXPECT_EQ(names.place(name, pkg::hashOfName(name.c_str())), expected);
  }
}

TEST(NameTable, NamesOfOneHashAreToldApartAndLeaveRoomForOthers) {
  Names names;
  constexpr std::uint32_t kLast = 0xFFFFFFFF;  // from the end of the table on from its start
  for (int i = 0; i < 100; ++i)
    names.enter(std::to_string(i), kLast);
  for (int i = 0; i < 100; ++i)
    EXPECT_EQ(names.place(std::to_string(i), kLast), static_cast<NameTable::Index>(i));
  EXPECT_EQ(names.place("other", kLast), NameTable::kNone);
  EXPECT_EQ(names.place("other", 0), NameTable::kNone);
}

TEST(NameTable, AnEmptyTableFindsNothing) {
  NameTable table;
  EXPECT_EQ(table.place(7, [](NameTable::Index) { return true; }), NameTable::kNone);
}

TEST(NameTable, HasTheRoomThatWasAskedFor) {
  for (const unsigned count : {0u, 1u, 8u, 9u, 1000u})
    EXPECT_GE(NameTable(count).room(), count);
}

}  // namespace
