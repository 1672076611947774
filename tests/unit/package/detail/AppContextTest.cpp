#include <cstdint>
#include <list>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "package/detail/AppContext.h"
#include "package/detail/ZipImpl.h"

namespace {

using pkg::AppContext;
using pkg::PkgAlloc;
using pkg::zip::ZipAllocator;

static_assert(
    std::is_same_v<AppContext, pkg::BaseAppContext<char, PkgAlloc, std::allocator,
                                                   std::char_traits<char>, pkg::CharConv<char>>>);
static_assert(std::is_same_v<AppContext::String, std::string>);
static_assert(std::is_empty_v<AppContext>);
static_assert(!std::is_default_constructible_v<AppContext>);
static_assert(std::is_empty_v<AppContext::MyArrayDeleter<char>>);
static_assert(std::is_empty_v<AppContext::DeleteNop<char>>);
static_assert(std::is_empty_v<ZipAllocator<int>>);

TEST(AppContext, FromUTF8TakesTheBytesAsTheyAre) {
  EXPECT_EQ(AppContext::fromUTF8(""), "");
  EXPECT_EQ(AppContext::fromUTF8("na\xC3\xAFve"), "na\xC3\xAFve");
  EXPECT_EQ(AppContext::fromUTF8("\xFF\x80 no UTF-8"), "\xFF\x80 no UTF-8") << "not validated";
}

TEST(AppContext, ToUTF8KeepsNoCopy) {
  std::string text = "text";
  const boost::shared_array<char> view = AppContext::toUTF8(text);
  EXPECT_EQ(view.get(), text.c_str()) << "the string's own buffer";
  text[0] = 'n';
  EXPECT_STREQ(view.get(), "next");
}

TEST(AppContext, ToUTF8FreesNothing) {
  const std::string text(1000, 'x');  // long enough to stand on the heap
  boost::shared_array<char> view = AppContext::toUTF8(text);
  boost::shared_array<char> copy = view;
  view.reset();
  copy.reset();
  EXPECT_EQ(text, std::string(1000, 'x'));
}

TEST(AppContext, ToUTF8OfAnEmptyStringIsTerminated) {
  const std::string text;
  EXPECT_STREQ(AppContext::toUTF8(text).get(), "");
}

TEST(AppContext, TheArrayDeleterDeletesArrays) {
  boost::shared_array<char> array(new char[100], AppContext::MyArrayDeleter<char>());
  array[99] = 'x';
  array.reset();  // a sanitizer objects to a leak, and to the wrong delete
  EXPECT_EQ(array.get(), nullptr);
}

TEST(ZipAllocator, ServesStandardContainers) {
  std::vector<int, ZipAllocator<int>> numbers;
  for (int i = 0; i < 1000; ++i)
    numbers.push_back(i);
  EXPECT_EQ(numbers.back(), 999);
  std::list<std::string, ZipAllocator<std::string, PkgAlloc>> texts{"a", "b"};
  texts.pop_front();
  EXPECT_EQ(texts.front(), "b");
}

TEST(ZipAllocator, AllAreEqualWhateverTheyAllocate) {
  EXPECT_TRUE((ZipAllocator<int>() == ZipAllocator<char>()));
  EXPECT_FALSE((ZipAllocator<int>() != ZipAllocator<char>()));
  EXPECT_TRUE((ZipAllocator<int>(ZipAllocator<long>()) == ZipAllocator<int>()));
}

TEST(ZipAllocator, ACountThatNoMemoryHoldsIsRefused) {
  EXPECT_THROW(static_cast<void>(ZipAllocator<int>().allocate(SIZE_MAX / 2)), std::bad_alloc);
}

}  // namespace
