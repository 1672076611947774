#include <cerrno>
#include <climits>
#include <cstring>
#include <iterator>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "package/source/PackageException.h"

#include "unit/errors/ErrorTable.h"

namespace {

using namespace pkg;

using errors::kRows;
using errors::Row;

static_assert(sizeof(PkgLib_Package_Error) == 4);
static_assert(std::is_signed_v<std::underlying_type_t<PkgLib_Package_Error>>);
static_assert(std::is_base_of_v<std::exception, PackageException<>>);
static_assert(std::is_base_of_v<PackageException<>, PackageIOException<>>);
static_assert(sizeof(PackageIOException<>) == sizeof(PackageException<>));
static_assert(std::is_nothrow_destructible_v<PackageIOException<>>);
static_assert(std::extent_v<decltype(sErrMsg)> == 51);

const std::string kPrefix = "PKGLIB SAMPLE ERROR MESSAGE: ";
const std::string kUnknown = kPrefix + "UNKNOWN Error Code";

PkgLib_Package_Error numbered(int number) {
  return static_cast<PkgLib_Package_Error>(number);
}

TEST(PackageException, EveryCodeHasItsNumberAndItsText) {
  ASSERT_EQ(std::size(kRows), 51u);
  int expected = 0;
  for (const Row& row : kRows) {
    EXPECT_EQ(row.number, expected);
    EXPECT_EQ(static_cast<int>(row.code), expected);
    EXPECT_EQ(sErrMsg[expected], kPrefix + row.tail);
    ++expected;
  }
}

TEST(PackageException, BothTypesTakeTheirTextFromTheTable) {
  for (const Row& row : kRows) {
    PackageException<> misuse(row.code);
    EXPECT_EQ(misuse.what(), kPrefix + row.tail);
    EXPECT_EQ(misuse.getErrorCode(), row.code);
    PackageIOException<> io(row.code);
    EXPECT_EQ(io.what(), kPrefix + row.tail);
    EXPECT_EQ(io.getErrorCode(), row.code);
  }
}

TEST(PackageException, ThePointerIsThatOfTheTable) {
  EXPECT_EQ(PackageException<>(PkgLib_Err_BadArgument).what(), sErrMsg[22]);
}

TEST(PackageException, TheTextsOfSizeMismatchAndOfAlreadyOpenAreCrossed) {
  EXPECT_EQ(PackageException<>(PkgLib_Err_BadLFHSizeValue).what(),
            kPrefix + "Package already open");
  EXPECT_EQ(PackageException<>(PkgLib_Err_PackageAlreadyOpen).what(),
            kPrefix + "Bad LFH size value");
}

TEST(PackageException, ANumberOutsideTheTableKeepsItsCodeAndHasTheUnknownText) {
  for (const int number : {50, 51, 52, 1000, INT_MAX, -1, -50, INT_MIN}) {
    PackageException<> misuse(numbered(number));
    EXPECT_EQ(misuse.what(), kUnknown) << number;
    EXPECT_EQ(misuse.getErrorCode(), number);
    PackageIOException<> io(numbered(number));
    EXPECT_EQ(io.what(), kUnknown) << number;
    EXPECT_EQ(io.getErrorCode(), number);
  }
}

TEST(PackageException, AHandlerForTheBaseCatchesTheIOException) {
  try {
    throw PackageIOException<>(PkgLib_Err_WritingFile);
  } catch (PackageException<>& e) {
    EXPECT_EQ(e.getErrorCode(), 29);
    EXPECT_NE(dynamic_cast<PackageIOException<>*>(&e), nullptr);
    return;
  }
  FAIL() << "not caught";
}

TEST(PackageException, AHandlerForStandardExceptionsSeesTheText) {
  try {
    throw PackageException<>(PkgLib_Err_NotInUpdate);
  } catch (const std::exception& e) {
    EXPECT_EQ(e.what(), kPrefix + "Package not in update");
    return;
  }
  FAIL() << "not caught";
}

TEST(PackageException, AMisuseIsNoIOException) {
  EXPECT_THROW(
      {
        try {
          throw PackageException<>(PkgLib_Err_FindECD);
        } catch (PackageIOException<>&) {
        }
      },
      PackageException<>);
}

TEST(PackageIOException, AMessageOfItsOwnReplacesTheTable) {
  const char* const message = "Device or resource busy";
  PackageIOException<> e(PkgLib_Err_Unknown, message);
  EXPECT_EQ(e.what(), message) << "the pointer itself";
  EXPECT_EQ(e.getErrorCode(), 50);
  PackageIOException<> odd(numbered(-7), message);
  EXPECT_EQ(odd.getErrorCode(), -7);
  EXPECT_EQ(odd.what(), message);
}

TEST(PackageIOException, WithoutAMessageTheOwnTextIsEmpty) {
  const PackageIOException<> e(PkgLib_Err_Unknown, nullptr);
  EXPECT_STREQ(e.what(), "");
}

TEST(PackageException, ACopyKeepsCodeAndText) {
  const char* const message = "No space left on device";
  const PackageIOException<> original(PkgLib_Err_Unknown, message);
  PackageIOException<> copy(original);
  EXPECT_EQ(copy.what(), message);
  EXPECT_EQ(copy.getErrorCode(), 50);
}

TEST(SystemError, RaisesCode50WithTheSystemsText) {
  for (const int error : {ENOENT, EACCES, ENOSPC, EIO, EISDIR}) {
    try {
      throwSystemError(error);
      FAIL() << "nothing was raised for " << error;
    } catch (PackageIOException<>& e) {
      EXPECT_EQ(e.getErrorCode(), 50);
      EXPECT_STREQ(e.what(), std::strerror(error));
      EXPECT_NE(e.what(), kUnknown);
    }
  }
}

}  // namespace
