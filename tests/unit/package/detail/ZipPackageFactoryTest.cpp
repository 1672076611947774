#include <string>

#include <gtest/gtest.h>

#include "package/detail/ZipPackageFactory.h"

#include "support/FileSystems.h"
#include "support/Raised.h"
#include "support/ZipBytes.h"
#include "unit/package/detail/FakeParser.h"
#include "unit/package/detail/TestPackage.h"

namespace {

using namespace pkg;
using std::ios;
using support::FileCall;
using support::ioError;
using support::MemoryFileSystem;
using support::misuse;
using support::nothing;
using support::raised;
using support::RecordingFileSystem;

zip::ZipPackageFactory<>& factory() {
  return *zip::ZipPackageFactory<>::getInstance();
}

std::string smallPackage() {
  return zipbytes::File().add(zipbytes::storedEntry("a", "bytes"), "bytes").bytes();
}

class ZipPackageFactory : public testing::Test {
protected:
  boost::shared_ptr<IPkgFSFile<>> open(const std::string& name) {
    return fFiles.openFile(fFiles.getFSFileName(name), ios::in);
  }
  bool accepts(const std::string& bytes) {
    fFiles.put("file", bytes);
    return factory().acceptPackage(std::string("file"), &fFiles, nullptr, nullptr);
  }
  support::Raised opening(const std::string& bytes) {
    fFiles.put("file", bytes);
    return raised([&] {
      factory().openPackage(std::string("file"), ios::in, &fRecording, nullptr, nullptr);
    });
  }

  MemoryFileSystem fFiles;
  RecordingFileSystem fRecording{fFiles};
};

TEST_F(ZipPackageFactory, HasTheCharactersOfPaths) {
  EXPECT_EQ(factory().fPathSeparator, '/');
  EXPECT_EQ(factory().fPathDot, '.');
  EXPECT_EQ(factory().fSchemaSeparator, ':');
  EXPECT_EQ(factory().fPathAnchor, '#');
}

TEST_F(ZipPackageFactory, CanonicalizeReducesPaths) {
  EXPECT_EQ(factory().canonicalize("/a//b/../c", true), "/a/c");
  EXPECT_EQ(factory().canonicalize("/a//b/../c", false), "a/c");
  EXPECT_EQ(raised([] { factory().canonicalize("", true); }), misuse(22));
}

TEST_F(ZipPackageFactory, AcceptsWhatBeginsWithALocalHeader) {
  EXPECT_TRUE(accepts("PK\x03\x04"));
  EXPECT_TRUE(accepts(smallPackage()));
  EXPECT_TRUE(accepts("PK\x03\x04 and nonsense")) << "nothing else is looked at";
}

TEST_F(ZipPackageFactory, AnswersNoToAnythingElse) {
  EXPECT_FALSE(accepts(zipbytes::endRecord({}))) << "an empty archive";
  EXPECT_FALSE(accepts("PK\x01\x02 central header"));
  EXPECT_FALSE(accepts("PK\x07\x09"));
  EXPECT_FALSE(accepts("%PDF-1.4"));
}

TEST_F(ZipPackageFactory, AnswersNoToAFileOfFewerThanFourBytes) {
  for (const std::string bytes : {"", "P", "PK", "PK\x03"}) {
    EXPECT_FALSE(accepts(bytes)) << bytes.size();
  }
}

TEST_F(ZipPackageFactory, ASplitArchiveRaises16InsteadOfNo) {
  EXPECT_EQ(raised([&] { accepts("PK\x07\x08"); }), misuse(16));
  EXPECT_EQ(raised([&] { accepts("PK\x07\x08" + smallPackage()); }), misuse(16));
}

TEST_F(ZipPackageFactory, AcceptingMovesAnOpenFileByFourBytes) {
  fFiles.put("file", "xx" + smallPackage());
  const auto file = open("file");
  EXPECT_FALSE(factory().acceptPackage(file, nullptr, nullptr));
  EXPECT_EQ(file->tell(), 4);
  file->seek(2, SEEK_SET);
  EXPECT_TRUE(factory().acceptPackage(file, nullptr, nullptr)) << "at the position as it is";
  EXPECT_EQ(file->tell(), 6);
  char next[2];
  file->read(next, 2);
  EXPECT_EQ(std::string(next, 2), smallPackage().substr(4, 2)) << "a client has to seek back";
}

TEST_F(ZipPackageFactory, AcceptingNeedsNoSeeking) {
  fFiles.put("file", smallPackage());
  support::UnseekableFileSystem pipes(fFiles);
  EXPECT_TRUE(factory().acceptPackage(std::string("file"), &pipes, nullptr, nullptr));
}

TEST_F(ZipPackageFactory, AcceptingByNameReadsFourBytesAndLetsGoOfTheFile) {
  fFiles.put("file", smallPackage());
  const auto name = fRecording.getFSFileName("file");
  EXPECT_TRUE(factory().acceptPackage(name, nullptr, nullptr));
  EXPECT_EQ(fRecording.filesAlive(), 0);
  ASSERT_EQ(fRecording.calls().size(), 2u);
  EXPECT_EQ(fRecording.calls()[0].number, static_cast<long long>(ios::in));
  EXPECT_EQ(fRecording.total(FileCall::Read), 4);
}

TEST_F(ZipPackageFactory, AFileThatCannotBeOpenedRaisesWhatTheFileSystemRaises) {
  const std::string missing = "missing";
  EXPECT_EQ(raised([&] { factory().acceptPackage(missing, &fFiles, nullptr, nullptr); }),
            ioError(50));
  EXPECT_EQ(raised([&] { factory().openPackage(missing, ios::in, &fFiles, nullptr, nullptr); }),
            ioError(50));
  EXPECT_EQ(raised([&] { factory().openPackage(missing, ios::app, &fFiles, nullptr, nullptr); }),
            ioError(23));
}

TEST_F(ZipPackageFactory, WhatIsNoPackageRaises20AndLetsGoOfTheFile) {
  EXPECT_EQ(opening(""), misuse(20));
  EXPECT_EQ(opening("PK"), misuse(20));
  EXPECT_EQ(opening("no package at all"), misuse(20));
  EXPECT_EQ(opening(zipbytes::endRecord({})), misuse(20)) << "an archive without entries";
  EXPECT_EQ(opening("PK\x07\x08" + smallPackage()), misuse(16));
  EXPECT_EQ(opening("PK\x03\x04 and no directory at all"), misuse(11));
  EXPECT_EQ(fRecording.filesAlive(), 0);
}

TEST_F(ZipPackageFactory, OpensAPackageByPathByNameAndByFile) {
  fFiles.put("file", smallPackage());
  const auto byPath =
      factory().openPackage(std::string("file"), ios::in, &fFiles, nullptr, nullptr);
  const auto byName =
      factory().openPackage(fFiles.getFSFileName("file"), ios::in, nullptr, nullptr);
  const auto byFile = factory().openPackage(open("file"), nullptr, nullptr);
  for (const auto& package : {byPath, byName, byFile}) {
    EXPECT_EQ(package->entryExists("a"), PkgEntryFile);
    EXPECT_EQ(package->getOpenMode(true), ios::in);
    EXPECT_EQ(package->getName(), "file");
    EXPECT_EQ(package->getFSFile()->getFileSystem(), &fFiles);
  }
}

TEST_F(ZipPackageFactory, APackageFromAFileHasThatFilesMode) {
  const auto file =
      fFiles.openFile(fFiles.getFSFileName("new"), ios::in | ios::out | ios::trunc | ios::binary);
  const auto package = factory().openPackage(file, nullptr, nullptr);
  EXPECT_EQ(package->getOpenMode(true), ios::in | ios::out | ios::trunc | ios::binary);
  EXPECT_EQ(package->entryExists("a"), PkgEntryNone);
}

TEST_F(ZipPackageFactory, APackageThatHoldsAFileCannotOpenAnother) {
  support::TestPackage package;
  EXPECT_EQ(raised([&] { package.zip()->openFile(ios::in); }), misuse(18));
}

TEST_F(ZipPackageFactory, TheDefaultFileSystemServesWhereNoneIsGiven) {
  // A name that belongs to no file system.
  const auto orphan = boost::make_shared<BasePkgFSFileName<>>(nullptr, "file");
  fFiles.put("file", smallPackage());
  factory().setDefaultFileSystem(&fFiles);
  EXPECT_TRUE(factory().acceptPackage(std::string("file"), nullptr, nullptr, nullptr));
  EXPECT_TRUE(factory().acceptPackage(orphan, nullptr, nullptr));
  EXPECT_EQ(factory()
                .openPackage(std::string("file"), ios::in, nullptr, nullptr, nullptr)
                ->entryExists("a"),
            PkgEntryFile);
  EXPECT_EQ(factory().openPackage(orphan, ios::in, nullptr, nullptr)->entryExists("a"),
            PkgEntryFile);
  factory().setDefaultFileSystem(BasePkgFileSystem<>::getInstance());
  EXPECT_EQ(raised([&] {
              factory().acceptPackage(std::string("/no such/file"), nullptr, nullptr, nullptr);
            }),
            ioError(50));
}

TEST_F(ZipPackageFactory, TheFileSystemOfANameGoesBeforeTheDefault) {
  fFiles.put("file", smallPackage());
  EXPECT_TRUE(factory().acceptPackage(fRecording.getFSFileName("file"), nullptr, nullptr));
  EXPECT_EQ(fRecording.count(FileCall::Open), 1);
}

TEST_F(ZipPackageFactory, TheDefaultParserServesWhereNoneIsGiven) {
  fFiles.put("file", smallPackage());
  const auto parserOf = [&](IXMLParser* parser) {
    const auto package =
        factory().openPackage(std::string("file"), ios::in, &fFiles, nullptr, parser);
    const auto byFile = factory().openPackage(open("file"), nullptr, parser);
    IXMLParser* const got = dynamic_cast<BasePackage<AppContext>&>(*package).getXMLParser();
    EXPECT_EQ(got, dynamic_cast<BasePackage<AppContext>&>(*byFile).getXMLParser());
    return got;
  };
  support::FakeParser standard;
  support::FakeParser own;
  EXPECT_EQ(parserOf(nullptr), nullptr);
  factory().setPackageXMLParser(&standard);
  EXPECT_EQ(parserOf(nullptr), &standard);
  EXPECT_EQ(parserOf(&own), &own);
  factory().setPackageXMLParser(nullptr);
  EXPECT_EQ(parserOf(nullptr), nullptr);
}

TEST_F(ZipPackageFactory, AConformingPackageIsNewAndHasItsType) {
  fFiles.put("package", "old bytes");
  const auto package = factory().createConformingPackage("package", "application/x-test", false,
                                                         &fFiles, nullptr, nullptr);
  EXPECT_EQ(package->getOpenMode(true), ios::out | ios::trunc);
  EXPECT_EQ(package->entryExists("mimetype"), PkgEntryFile);
  EXPECT_EQ(raised([&] { package->endUpdate(); }), misuse(37)) << "no update runs";
  EXPECT_EQ(fFiles.bytes("package"), "");
}

TEST_F(ZipPackageFactory, AConformingPackageMadeInAnUpdateHasWrittenItsTypeFirst) {
  const auto package = factory().createConformingPackage("package", "application/x-test", true,
                                                         &fRecording, nullptr, nullptr);
  EXPECT_EQ(fRecording.count(FileCall::CreateTemp), 0) << "straight into the file";
  EXPECT_EQ(raised([&] { package->beginUpdate(); }), misuse(35)) << "the update runs";
  package->endUpdate();
  package->close();
  const std::string& bytes = fFiles.bytes("package");
  EXPECT_EQ(bytes.substr(30, 26), "mimetypeapplication/x-test") << "stored, at the very start";
}

TEST_F(ZipPackageFactory, APackageThatCannotBeCreatedRaisesWhatTheFileSystemRaises) {
  support::FailingFileSystem failing(fFiles, 1, {support::Failure::Open});
  EXPECT_EQ(raised([&] {
              factory().createConformingPackage("package", "x/y", true, &failing, nullptr, nullptr);
            }),
            ioError(50));
  EXPECT_FALSE(fFiles.exists("package"));
}

}  // namespace
