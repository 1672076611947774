#include <new>
#include <type_traits>

#include <gtest/gtest.h>

#include "package/Package.h"
#include "package/detail/SPRefType.h"

#include "support/Allocations.h"

namespace {

// Counts as an entry does, and tells of its end instead of dying.
struct CountedEntry {
  int references = 1;
  int releases = 0;
  void addRef() { ++references; }
  void release() {
    ++releases;
    --references;
  }
};

using Handle = pkg::SPRefType<CountedEntry>;

static_assert(std::is_same_v<pkg::SPRefType<pkg::IPkgEntry<>>::element_type, pkg::IPkgEntry<>>);
static_assert(!std::is_convertible_v<CountedEntry*, Handle>, "adopting is said aloud");

TEST(SPRefType, AdoptsTheReferenceThatTheCallerHolds) {
  CountedEntry entry;
  {
    const Handle handle(&entry);
    EXPECT_EQ(entry.references, 1) << "addRef is not called";
    EXPECT_EQ(handle.use_count(), 1);
  }
  EXPECT_EQ(entry.releases, 1);
  EXPECT_EQ(entry.references, 0);
}

TEST(SPRefType, CopiesShareOneReference) {
  CountedEntry entry;
  {
    Handle first(&entry);
    const Handle second = first;
    Handle third;
    third = second;
    EXPECT_EQ(first.use_count(), 3);
    EXPECT_EQ(entry.references, 1);
    first.reset();
    third = Handle();
    EXPECT_EQ(entry.releases, 0) << "one copy is left";
  }
  EXPECT_EQ(entry.releases, 1);
}

TEST(SPRefType, SeparateHandlesReleaseSeparately) {
  CountedEntry entry;
  Handle first(&entry);
  entry.addRef();
  Handle second(&entry);
  EXPECT_EQ(first.use_count(), 1);
  EXPECT_EQ(second.use_count(), 1);
  first.reset();
  EXPECT_EQ(entry.references, 1);
  second.reset();
  EXPECT_EQ(entry.references, 0);
  EXPECT_EQ(entry.releases, 2);
}

TEST(SPRefType, ANullHandleIsFalseAndReleasesNothing) {
  const Handle null;
  EXPECT_FALSE(null);
  EXPECT_EQ(null.get(), nullptr);
  EXPECT_EQ(null, Handle());
  { const Handle ofNull(nullptr); }
}

TEST(SPRefType, ReachesTheEntryInEveryWay) {
  CountedEntry entry;
  const Handle handle(&entry);
  EXPECT_TRUE(handle);
  EXPECT_EQ(handle.get(), &entry);
  EXPECT_EQ(&*handle, &entry);
  EXPECT_EQ(handle->releases, 0);
}

TEST(SPRefType, HandlesAreEqualWhereTheEntryIsTheSame) {
  CountedEntry entry;
  CountedEntry other;
  entry.addRef();
  const Handle first(&entry);
  const Handle second(&entry);
  const Handle third(&other);
  EXPECT_TRUE(first == second) << "of different control blocks";
  EXPECT_TRUE(first != third);
  EXPECT_FALSE(first == third);
}

TEST(SPRefType, WhereTheControlBlockCannotBeHadTheReferenceIsGivenBack) {
  CountedEntry entry;
  allocations::fail(1);
  EXPECT_THROW(Handle{&entry}, std::bad_alloc);
  EXPECT_EQ(entry.releases, 1);
}

}  // namespace
