#include <string>

#include <gtest/gtest.h>

#include "package/source/PathRules.h"

#include "support/Raised.h"

namespace {

using pkg::reducePath;

constexpr pkg::PathCharacters kUsual = {'/', '.', '#'};

struct Row {
  const char* path;
  const char* relative;  // without the root
  const char* rooted;    // with it, where the path has one
};

// Every state of the scan meets every kind of character.
const Row kRows[] = {
    {"/", "/", "/"},
    {"//", "/", "/"},
    {"a", "a", "a"},
    {"/a", "a", "/a"},
    {"a/", "a/", "a/"},
    {"/a//b/", "a/b/", "/a/b/"},
    {"//a", "a", "/a"},
    {"a///b", "a/b", "a/b"},
    // "." segments
    {".", "/", "/"},
    {"./", "/", "/"},
    {"/.", "/", "/"},
    {"./a", "a", "a"},
    {"a/.", "a/", "a/"},
    {"a/./b/../c", "a/c", "a/c"},
    {".a", ".a", ".a"},
    {"a/.b", "a/.b", "a/.b"},
    // ".." segments
    {"..", "/", "/"},
    {"/..", "/", "/"},
    {"../x", "x", "x"},
    {"/../x", "x", "/x"},
    {"../../x", "x", "x"},
    {"x/..", "/", "/"},
    {"x/../", "/", "/"},
    {"x/y/..", "x/", "x/"},
    {"x/y/../../z", "z", "z"},
    {"x/../../../y", "y", "y"},
    {"..a/b", "..a/b", "..a/b"},
    {"a/..b", "a/..b", "a/..b"},
    {"...", "...", "..."},
    {"a/.../b", "a/.../b", "a/.../b"},
    {"a..", "a..", "a.."},
    {"a./b", "a./b", "a./b"},
    // anchors
    {"#", "#", "#"},
    {"/#", "#", "/#"},
    {"x/#frag", "x/#frag", "x/#frag"},
    {"x/.#y", "x/#y", "x/#y"},
    {".#y", "#y", "#y"},
    {"x/..#y", "#y", "#y"},
    {"x/z/..#y", "x/#y", "x/#y"},
    {"..#y", "#y", "#y"},
    {"/..#y", "#y", "/#y"},
    {"a#b/../c", "a#b/../c", "a#b/../c"},
    {"a/b#", "a/b#", "a/b#"},
    {"d/../a#b/./c//d", "a#b/./c//d", "a#b/./c//d"},
    {".a#b", ".a#b", ".a#b"},
    {"..a#b", "..a#b", "..a#b"},
    {"a/#b/../#c", "a/#b/../#c", "a/#b/../#c"},
    // characters that mean nothing here
    {"http://x/y", "http:/x/y", "http:/x/y"},
    {"a\\b/..\\c", "a\\b/..\\c", "a\\b/..\\c"},
    {"na\xC3\xAFve/./x", "na\xC3\xAFve/x", "na\xC3\xAFve/x"},
    {" / ", " / ", " / "},
};

TEST(PathRules, ReduceEveryPathOfTheTable) {
  for (const Row& row : kRows) {
    EXPECT_EQ(reducePath(row.path, false, kUsual), row.relative) << row.path;
    EXPECT_EQ(reducePath(row.path, true, kUsual), row.rooted) << row.path;
  }
}

TEST(PathRules, AnEmptyPathRaises22) {
  EXPECT_EQ(support::raised([] { reducePath("", false, kUsual); }), support::misuse(22));
  EXPECT_EQ(support::raised([] { reducePath("", true, kUsual); }), support::misuse(22));
}

// Not so where an anchor stands, whose tail may begin as a dot segment would.
TEST(PathRules, WhatIsReducedStaysAsItIs) {
  for (const Row& row : kRows) {
    EXPECT_EQ(reducePath(row.relative, false, kUsual), row.relative) << row.path;
    EXPECT_EQ(reducePath(row.rooted, true, kUsual), row.rooted) << row.path;
  }
}

TEST(PathRules, MoreSegmentsThanExpectedAreKept) {
  std::string path;
  for (int i = 0; i < 1000; ++i)
    path += "s" + std::to_string(i) + "/";
  EXPECT_EQ(reducePath(path, false, kUsual), path);
  std::string back = path;
  for (int i = 0; i < 999; ++i)
    back += "../";
  EXPECT_EQ(reducePath(back, false, kUsual), "s0/");
}

TEST(PathRules, ANulIsACharacterLikeAnyOther) {
  const std::string path("a\0b/../c\0", 9);
  EXPECT_EQ(reducePath(path, false, kUsual), std::string("c\0", 2));
}

TEST(PathRules, TheCharactersAreTheCallers) {
  EXPECT_EQ(reducePath("a\\,\\b\\,,\\c!d\\,,", false, {'\\', ',', '!'}), "a\\c!d\\,,");
}

}  // namespace
