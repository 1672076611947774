#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "package/detail/BasePackage.h"

#include "support/Raised.h"
#include "support/ZipBytes.h"
#include "unit/package/detail/TestPackage.h"

namespace {

using namespace pkg;
using std::ios;
using support::misuse;
using support::nothing;
using support::raised;
using support::TestPackage;

static_assert(IPkgPolicies::PolicyDataDescriptor == 0);
static_assert(IPkgPolicies::PolicyCRC == 1);
static_assert(IPkgPolicies::PolicyConformance == 100);
static_assert(sizeof(IPkgPolicies::Policies) == 4);

class Answers : public IPkgPolicies {
public:
  std::int32_t getPolicy(Policies policy) const override {
    return policy == PolicyConformance ? 0 : 1000 + static_cast<std::int32_t>(policy);
  }
};

struct Operation {
  const char* name;
  std::function<void(IPackage<>&)> call;
};

const Operation kNeedsAnOpenPackage[] = {
    {"getOpenMode", [](IPackage<>& p) { p.getOpenMode(true); }},
    {"getOpenMode of the update", [](IPackage<>& p) { p.getOpenMode(false); }},
    {"setDefaultCompressionMethod",
     [](IPackage<>& p) { p.setDefaultCompressionMethod(CompressionStored); }},
    {"getDefaultCompressionMethod", [](IPackage<>& p) { p.getDefaultCompressionMethod(); }},
    {"isModified", [](IPackage<>& p) { p.isModified(); }},
    {"beginUpdate", [](IPackage<>& p) { p.beginUpdate(); }},
    {"beginUpdate by name", [](IPackage<>& p) { p.beginUpdate(std::string("x"), ios::out); }},
    {"beginUpdate by the name of a file",
     [](IPackage<>& p) { p.beginUpdate(boost::shared_ptr<IPkgFSFileName<>>(), ios::out); }},
    {"endUpdate", [](IPackage<>& p) { p.endUpdate(); }},
    {"cancelUpdate", [](IPackage<>& p) { p.cancelUpdate(); }},
    {"saveAs", [](IPackage<>& p) { p.saveAs(std::string("x"), ios::out); }},
    {"saveAs by the name of a file",
     [](IPackage<>& p) { p.saveAs(boost::shared_ptr<IPkgFSFileName<>>(), ios::out); }},
    {"close", [](IPackage<>& p) { p.close(); }},
    {"closeWithoutSave", [](IPackage<>& p) { p.closeWithoutSave(); }},
    {"entryExists", [](IPackage<>& p) { p.entryExists("x"); }},
    {"entryExists in a directory", [](IPackage<>& p) { p.entryExists("x", {}); }},
    {"getFile", [](IPackage<>& p) { p.getFile("x", false); }},
    {"getFile in a directory", [](IPackage<>& p) { p.getFile("x", {}, false); }},
    {"getDirectory", [](IPackage<>& p) { p.getDirectory("x", false); }},
    {"getDirectory in a directory", [](IPackage<>& p) { p.getDirectory("x", {}, false); }},
    {"getRootDirectory", [](IPackage<>& p) { p.getRootDirectory(); }},
    {"getName", [](IPackage<>& p) { p.getName(); }},
    {"getFSFile", [](IPackage<>& p) { p.getFSFile(); }},
    {"setMIMEType", [](IPackage<>& p) { p.setMIMEType("x/y"); }},
    {"getMIMEType", [](IPackage<>& p) { p.getMIMEType(); }},
    {"getProperty", [](IPackage<>& p) { p.getProperty(QCFPropertyPackageComment); }},
    {"getProperty of another", [](IPackage<>& p) { p.getProperty(QCFPropertyMacType); }},
    {"setProperty", [](IPackage<>& p) { p.setProperty(QCFPropertyPackageComment, "x"); }},
    {"setProperty of another", [](IPackage<>& p) { p.setProperty(QCFPropertyMacType, "x"); }},
    {"checkConformance", [](IPackage<>& p) { p.checkConformance(); }},
    {"initIterator",
     [](IPackage<>& p) {
       boost::shared_ptr<IPkgEntryIteratorImpl<>> iterator;
       p.initIterator(iterator, {}, "");
     }},
};

TEST(BasePackage, EveryOperationOfAClosedPackageRaises24) {
  TestPackage package;
  package->close();
  for (const Operation& operation : kNeedsAnOpenPackage) {
    EXPECT_EQ(raised([&] { operation.call(*package); }), misuse(24)) << operation.name;
  }
}

TEST(BasePackage, PoliciesAnswerOpenOrNot) {
  const Answers answers;
  TestPackage package(nullptr, &answers);
  for (const bool closed : {false, true}) {
    if (closed) package->close();
    EXPECT_EQ(package->getPolicies(), &answers);
    EXPECT_EQ(package->getPolicy(IPkgPolicies::PolicyDataDescriptor), 1000);
    EXPECT_EQ(package->getPolicy(IPkgPolicies::PolicyCRC), 1001);
  }
}

TEST(BasePackage, WithoutPoliciesEveryAnswerIsZero) {
  TestPackage package;
  EXPECT_EQ(package->getPolicies(), nullptr);
  for (const int policy : {0, 1, 100, 7, -1}) {
    EXPECT_EQ(package->getPolicy(static_cast<IPkgPolicies::Policies>(policy)), 0) << policy;
  }
}

// What an answer of zero means: no order of entries, and on a pipe a descriptor behind the data and
// the announced CRC before it.
TEST(BasePackage, WithoutPoliciesAPipeGetsDescriptorsAndTheAnnouncedCRC) {
  support::MemoryFileSystem memory;
  support::UnseekableFileSystem pipes(memory);
  const auto package = QCFPackageFactory().openPackage(std::string("p"), ios::out | ios::trunc,
                                                       &pipes, nullptr, nullptr);
  package->beginUpdate();
  const auto file = package->getFile("a", false);
  file->setCompressionMethod(CompressionStored);
  file->setExpectedCRC32(0x12345678);
  const auto stream = file->open(ios::out, false);
  stream->write("data", 4);
  stream->close();
  package->endUpdate();
  const std::string& bytes = memory.bytes("p");
  EXPECT_EQ(bytes.substr(6, 2), zipbytes::u16(0x0808)) << "UTF-8, and a descriptor";
  EXPECT_EQ(bytes.substr(14, 4), zipbytes::u32(0x12345678));
  EXPECT_EQ(bytes.substr(30, 9), "adataPK\x07\x08");
}

TEST(BasePackage, ASecondCloseRaises24) {
  TestPackage package;
  EXPECT_EQ(raised([&] { package->close(); }), nothing());
  EXPECT_EQ(raised([&] { package->close(); }), misuse(24));
}

TEST(BasePackage, CloseDropsWhatIsNotSaved) {
  TestPackage package;
  package->getFile("file", false)->open(ios::out, false)->write("bytes", 5);
  package->close();
  EXPECT_EQ(package.files().bytes("package"), "");
  EXPECT_EQ(package.files().temporaryFiles(), 0);
}

TEST(BasePackage, TheDefaultMethodIsDeflateAndIsNotCheckedWhenItIsSet) {
  TestPackage package;
  EXPECT_EQ(package->getDefaultCompressionMethod(), CompressionDeflated);
  package->setDefaultCompressionMethod(CompressionStored);
  EXPECT_EQ(package->getFile("stored", false)->getCompressionMethod(), CompressionStored);
  package->setDefaultCompressionMethod(static_cast<CompressionMethod>(12));
  EXPECT_EQ(package->getDefaultCompressionMethod(), 12);
  EXPECT_EQ(raised([&] { package->getFile("x", false); }), misuse(22)) << "an entry takes it over";
}

TEST(BasePackage, ADefaultOfNoMethodMakesEntriesDeflate) {
  TestPackage package;
  package->setDefaultCompressionMethod(CompressionDefault);
  EXPECT_EQ(package->getFile("x", false)->getCompressionMethod(), CompressionDeflated);
}

TEST(BasePackage, KnowsNameFileAndMode) {
  TestPackage package;
  EXPECT_EQ(package->getName(), "package");
  EXPECT_EQ(package->getFSFile()->getName()->getName(), "package");
  EXPECT_EQ(package->getOpenMode(true), ios::in | ios::out | ios::trunc);
}

TEST(BasePackage, TheUpdateModeIsThatOfTheRunningUpdate) {
  TestPackage package;
  package->beginUpdate();
  EXPECT_EQ(package->getOpenMode(false), ios::in | ios::out | ios::trunc);
  package->cancelUpdate();
  package->beginUpdate(std::string("other"), ios::out | ios::trunc);
  EXPECT_EQ(package->getOpenMode(false), ios::out | ios::trunc);
  EXPECT_EQ(package->getOpenMode(true), ios::in | ios::out | ios::trunc) << "until it ends";
  package->endUpdate();
}

TEST(BasePackage, ANewPackageIsNotModifiedAndAWrittenEntryMarksIt) {
  TestPackage package;
  EXPECT_FALSE(package->isModified());
  package->getFile("file", false)->open(ios::out, false)->close();
  EXPECT_TRUE(package->isModified());
}

TEST(BasePackage, LetsGoOfItsFileWhenItGoes) {
  support::MemoryFileSystem memory;
  support::RecordingFileSystem recording(memory);
  auto package = QCFPackageFactory().openPackage(std::string("p"), ios::out | ios::trunc,
                                                 &recording, nullptr, nullptr);
  EXPECT_EQ(recording.filesAlive(), 1);
  package.reset();
  EXPECT_EQ(recording.filesAlive(), 0);
  EXPECT_EQ(recording.count(support::FileCall::Close), 0) << "letting go is enough";
}

}  // namespace
