#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "package/QCFPackage.h"

#include "support/FileSystems.h"
#include "support/Raised.h"
#include "support/ZipBytes.h"
#include "unit/package/detail/FakeParser.h"

namespace {

using namespace pkg;
using std::ios;
using support::MemoryFileSystem;
using support::misuse;
using support::raised;

// A virtual table and nothing else.
static_assert(sizeof(QCFPackageFactory) == sizeof(void*));
static_assert(std::is_polymorphic_v<QCFPackageFactory>);
static_assert(!std::has_virtual_destructor_v<QCFPackageFactory>);

TEST(QCFVersion, IsTheTextWithItsKey) {
  EXPECT_STREQ(QCFVersion::GetQCFVersion(), "QCF_PACKAGE_VERSION=1.1.102.1");
  EXPECT_EQ(QCFVersion::GetQCFVersion(), QCF_PACKAGE_VERSION_STR);
  EXPECT_STREQ(QCF_PACKAGE_CHANGELIST_STR, "");
}

TEST(QCFPackageFactory, HasTheCharactersOfPaths) {
  QCFPackageFactory factory;
  EXPECT_EQ(factory.getPathSeparator(), '/');
  EXPECT_EQ(factory.getPathDot(), '.');
  EXPECT_EQ(factory.getSchemaSeparator(), ':');
  EXPECT_EQ(factory.getPathAnchor(), '#');
}

TEST(QCFPackageFactory, ReducesPathsWithAndWithoutTheirRoot) {
  QCFPackageFactory factory;
  EXPECT_EQ(factory.canonicalizeEntry("/a//b/"), "a/b/");
  EXPECT_EQ(factory.canonicalizePath("/a//b/"), "/a/b/");
  EXPECT_EQ(factory.canonicalizePath("a/./b"), "a/b");
  EXPECT_EQ(raised([&] { factory.canonicalizeEntry(""); }), misuse(22));
  EXPECT_EQ(raised([&] { factory.canonicalizePath(""); }), misuse(22));
}

TEST(QCFPackageFactory, ForwardsEveryOperationToTheSharedFactory) {
  QCFPackageFactory factory;
  MemoryFileSystem files;
  files.put("file", zipbytes::File().add(zipbytes::storedEntry("a", "x"), "x").bytes());
  const auto name = files.getFSFileName("file");
  const auto open = [&] { return files.openFile(name, ios::in); };

  EXPECT_TRUE(factory.acceptPackage(std::string("file"), &files, nullptr, nullptr));
  EXPECT_TRUE(factory.acceptPackage(name, nullptr, nullptr));
  EXPECT_TRUE(factory.acceptPackage(open(), nullptr, nullptr));

  const auto opened = {
      factory.openPackage(std::string("file"), ios::in, &files, nullptr, nullptr),
      factory.openPackage(name, ios::in, nullptr, nullptr),
      factory.openPackage(open(), nullptr, nullptr),
  };
  for (const auto& package : opened)
    EXPECT_EQ(package->entryExists("a"), PkgEntryFile);

  const auto made =
      factory.createConformingPackage("new", "application/x-test", true, &files, nullptr, nullptr);
  made->endUpdate();
  EXPECT_TRUE(factory.acceptPackage(std::string("new"), &files, nullptr, nullptr));
}

TEST(QCFPackageFactory, ItsDefaultsAreThoseOfTheSharedFactory) {
  QCFPackageFactory factory;
  MemoryFileSystem files;
  support::FakeParser parser;
  factory.setDefaultFileSystem(&files);
  factory.setPackageXMLParser(&parser);
  const auto package = zip::ZipPackageFactory<>::getInstance()->openPackage(
      std::string("new"), ios::in | ios::out | ios::trunc, nullptr, nullptr, nullptr);
  EXPECT_EQ(package->getFSFile()->getFileSystem(), &files);
  EXPECT_EQ(dynamic_cast<BasePackage<AppContext>&>(*package).getXMLParser(), &parser);
  factory.setDefaultFileSystem(BasePkgFileSystem<>::getInstance());
  factory.setPackageXMLParser(nullptr);
}

}  // namespace
