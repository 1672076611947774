#include <string>

#include <gtest/gtest.h>

#include "package/QCFPackage.h"

#include "support/MemoryFileSystem.h"

// A client of the shared library that uses it while its own statics are made.

namespace {

using std::ios;

std::string writeAndRead() {
  support::MemoryFileSystem files;
  pkg::QCFPackageFactory factory;
  const auto made =
      factory.createConformingPackage("a.pkg", "text/plain", true, &files, nullptr, nullptr);
  made->setProperty(pkg::QCFPropertyPackageComment, "a comment");
  made->endUpdate();
  const auto read = factory.openPackage(std::string("a.pkg"), ios::in, &files, nullptr, nullptr);
  return read->getMIMEType() + ", " + read->getProperty(pkg::QCFPropertyPackageComment);
}

const std::string kReadBeforeMain = writeAndRead();

TEST(BeforeMain, AClientOfTheSharedLibraryWritesAndReadsPackages) {
  EXPECT_EQ(kReadBeforeMain, "text/plain, a comment");
}

}  // namespace
