#include <iterator>
#include <string>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include "package/Package.h"

#include "unit/errors/ErrorTable.h"
#include "unit/errors/Roads.h"

// All numbers, each with its text, its type, and the calls that raise it.

namespace {

using errors::Kind;
using errors::kRows;
using errors::Road;
using errors::Row;

std::vector<Road> allRoads() {
  std::vector<Road> all = errors::directoryRoads();
  for (const auto& more : {errors::callRoads(), errors::writingRoads()})
    all.insert(all.end(), more.begin(), more.end());
  return all;
}

void expectFailure(const Road& road) {
  SCOPED_TRACE(road.what);
  const std::string own = std::string("PKGLIB SAMPLE ERROR MESSAGE: ") + kRows[road.code].tail;
  try {
    road.action();
    ADD_FAILURE() << "nothing was raised";
  } catch (pkg::PackageException<>& e) {
    EXPECT_EQ(road.code, e.getErrorCode());
    EXPECT_EQ(road.text.empty() ? own : road.text, e.what());
    EXPECT_EQ(road.isIO ? typeid(pkg::PackageIOException<>) : typeid(pkg::PackageException<>),
              typeid(e));
  }
}

}  // namespace

TEST(ErrorCodes, EveryRoadLeadsToItsNumberTextAndType) {
  for (const Road& road : allRoads())
    expectFailure(road);
}

TEST(ErrorCodes, EveryNumberIsRaisedInItsTypesOrNever) {
  const std::vector<Road> roads = allRoads();
  for (const Row& row : kRows) {
    bool misuse = false;
    bool io = false;
    for (const Road& road : roads) {
      misuse = misuse || (road.code == row.number && !road.isIO);
      io = io || (road.code == row.number && road.isIO);
    }
    EXPECT_EQ(row.kind == Kind::Misuse || row.kind == Kind::Both, misuse) << row.number;
    EXPECT_EQ(row.kind == Kind::IO || row.kind == Kind::Both, io) << row.number;
    EXPECT_EQ(row.kind == Kind::Never, *row.why != '\0') << row.number;
  }
}
