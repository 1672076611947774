#include <functional>

#include <gtest/gtest.h>

#include "unit/reading/Reading.h"

using namespace reading;

TEST(ClosedPackage, EveryOperationButThePoliciesRaises24) {
  const Policy policies(4);
  const MemoryPackage package(packageOf({"a"}), &policies);
  const Directory root = package->getRootDirectory();
  package->closeWithoutSave();

  const auto name = package.memory.getFSFileName("b.pkg");
  Iterator iterator;
  const std::vector<std::pair<const char*, std::function<void()>>> operations = {
      {"getOpenMode", [&] { package->getOpenMode(true); }},
      {"getOpenMode of the update", [&] { package->getOpenMode(false); }},
      {"setDefaultCompressionMethod",
       [&] { package->setDefaultCompressionMethod(pkg::CompressionStored); }},
      {"getDefaultCompressionMethod", [&] { package->getDefaultCompressionMethod(); }},
      {"isModified", [&] { package->isModified(); }},
      {"beginUpdate", [&] { package->beginUpdate(); }},
      {"beginUpdate by string", [&] { package->beginUpdate("b.pkg", kOut); }},
      {"beginUpdate by name", [&] { package->beginUpdate(name, kOut); }},
      {"endUpdate", [&] { package->endUpdate(); }},
      {"cancelUpdate", [&] { package->cancelUpdate(); }},
      {"saveAs by string", [&] { package->saveAs("b.pkg", kOut); }},
      {"saveAs by name", [&] { package->saveAs(name, kOut); }},
      {"close", [&] { package->close(); }},
      {"closeWithoutSave", [&] { package->closeWithoutSave(); }},
      {"entryExists", [&] { package->entryExists("a"); }},
      {"entryExists in a directory", [&] { package->entryExists("a", root); }},
      {"getFile", [&] { package->getFile("a", true); }},
      {"getFile in a directory", [&] { package->getFile("a", root, true); }},
      {"getDirectory", [&] { package->getDirectory("a", false); }},
      {"getDirectory in a directory", [&] { package->getDirectory("a", root, false); }},
      {"getRootDirectory", [&] { package->getRootDirectory(); }},
      {"getName", [&] { package->getName(); }},
      {"getFSFile", [&] { package->getFSFile(); }},
      {"setMIMEType", [&] { package->setMIMEType("text/plain"); }},
      {"getMIMEType", [&] { package->getMIMEType(); }},
      {"getProperty", [&] { package->getProperty(pkg::QCFPropertyPackageComment); }},
      {"setProperty", [&] { package->setProperty(pkg::QCFPropertyPackageComment, ""); }},
      {"checkConformance", [&] { package->checkConformance(); }},
      {"initIterator", [&] { package->initIterator(iterator, {}, ""); }},
  };
  for (const auto& [operation, call] : operations) {
    const Raised raised = raisedBy(call);
    EXPECT_EQ(24, raised.code) << operation;
    EXPECT_FALSE(raised.isIO) << operation;
    EXPECT_EQ("PKGLIB SAMPLE ERROR MESSAGE: Package in Illegal State", raised.text) << operation;
  }
  EXPECT_FALSE(package.memory.exists("b.pkg"));
  EXPECT_EQ(&policies, package->getPolicies());
  EXPECT_EQ(4, package->getPolicy(pkg::IPkgPolicies::PolicyConformance));
}

TEST(ClosedPackage, ASecondCloseIsAnError) {
  const MemoryPackage package(packageOf({"a"}));
  package->close();
  EXPECT_RAISES(24, package->close());
}

TEST(ClosedPackage, ClosingClosesTheFileOnce) {
  const MemoryPackage package(packageOf({"a"}));
  package->close();
  EXPECT_EQ(1, package.files.count(support::FileCall::Close));
  EXPECT_EQ(0, package.files.filesAlive());
}

TEST(ClosedPackage, EntriesThatAClientStillHoldsCanBeLetGo) {
  MemoryPackage package(packageOf({"a", "b/"}));
  const File file = package->getFile("a", true);
  const Directory directory = package->getDirectory("b", true);
  package->close();
  EXPECT_EQ("a", file->getName());
  EXPECT_EQ("b/", directory->getName());
}

TEST(OpenPackage, WithoutPoliciesEveryAnswerIsZero) {
  const MemoryPackage package(packageOf({"a"}));
  EXPECT_EQ(nullptr, package->getPolicies());
  for (const auto policy : {pkg::IPkgPolicies::PolicyDataDescriptor, pkg::IPkgPolicies::PolicyCRC,
                            pkg::IPkgPolicies::PolicyConformance}) {
    EXPECT_EQ(0, package->getPolicy(policy));
  }
}

TEST(OpenPackage, AnIllegalDefaultMethodShowsWhenAnEntryTakesItOver) {
  const MemoryPackage package(packageOf({"a"}));
  EXPECT_NO_THROW(package->setDefaultCompressionMethod(static_cast<pkg::CompressionMethod>(12)));
  EXPECT_EQ(12, package->getDefaultCompressionMethod());
  EXPECT_EQ(pkg::CompressionStored, package->getFile("a", true)->getCompressionMethod());
  EXPECT_RAISES(22, package->getFile("new", false));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("new"));
}
