#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "package/QCFPackage.h"

#include "support/TempDir.h"
#include "threads/AtOnce.h"

// Threads that share nothing but the library, its singletons among it.

namespace {

using testing::IsEmpty;

constexpr auto kIn = std::ios_base::in;
constexpr auto kOut = std::ios_base::out;
constexpr auto kTrunc = std::ios_base::trunc;

using Package = boost::shared_ptr<pkg::IPackage<>>;

void require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

void write(pkg::IPackage<>& package, const std::string& name, const std::string& content) {
  const auto file = package.getFile(name, false);
  file->setCompressionMethod(pkg::CompressionDeflated);
  const auto stream = file->open(kOut | kTrunc, false);
  stream->write(content.data(), static_cast<std::streamsize>(content.size()));
  stream->close();
}

// From its begin, and its second half once more after a move, which a deflated entry makes a
// temporary file for.
void requireHolds(pkg::IPackage<>& package, const std::string& name, const std::string& content) {
  const auto stream = package.getFile(name, true)->open(kIn, false);
  std::string read(content.size() + 1, '\0');
  stream->read(read.data(), static_cast<std::streamsize>(read.size()));
  read.resize(static_cast<std::size_t>(stream->gcount()));
  require(read == content, "an entry is read as another");
  const std::size_t half = content.size() / 2;
  stream->clear();
  stream->seekg(static_cast<std::streamoff>(half));
  read.assign(content.size() - half, '\0');
  stream->read(read.data(), static_cast<std::streamsize>(read.size()));
  require(read == content.substr(half), "after a move an entry is read as another");
  stream->close();
}

// All that a client does with packages, on files of its own.
void makeChangeAndRead(const std::string& path, int seed) {
  pkg::QCFPackageFactory factory;
  const std::string first(20000, static_cast<char>('a' + seed));
  const std::string second = "thread " + std::to_string(seed);
  Package package = factory.openPackage(path, kIn | kOut | kTrunc, nullptr, nullptr, nullptr);
  package->beginUpdate();
  write(*package, "first", first);
  write(*package, "dir/second", second);
  package->endUpdate();
  package->close();

  package = factory.openPackage(path, kIn | kOut, nullptr, nullptr, nullptr);
  requireHolds(*package, "first", first);
  package->getFile("first", true)->remove();
  package->saveAs(path + "2", kIn | kOut | kTrunc);
  package->close();

  package = factory.openPackage(path + "2", kIn, nullptr, nullptr, nullptr);
  requireHolds(*package, "dir/second", second);
  require(!package->entryExists("first"), "a removed entry is there");
  package->close();
}

TEST(Threads, SixteenThatMakeTheSingletonsTogetherGetTheSame) {
  std::vector<const void*> factories(16), files(16), codecs(16);
  EXPECT_THAT(threads::atOnce(16,
                              [&](int i) {
                                const auto n = static_cast<std::size_t>(i);
                                factories[n] = pkg::zip::ZipPackageFactory<>::getInstance();
                                files[n] = pkg::BasePkgFileSystem<>::getInstance();
                                codecs[n] = pkg::BasePkgHexStrings<>::getInstance();
                              }),
              IsEmpty());
  for (const auto& all : {factories, files, codecs}) {
    EXPECT_NE(all.front(), nullptr);
    EXPECT_THAT(all, testing::Each(all.front()));
  }
}

TEST(Threads, EightMakeChangeAndReadPackagesOfTheirOwn) {
  const support::TempDir folder;
  EXPECT_THAT(threads::atOnce(8,
                              [&](int i) {
                                const std::string path = (folder / std::to_string(i)).string();
                                for (int round = 0; round < 10; ++round)
                                  makeChangeAndRead(path, i);
                              }),
              IsEmpty());
}

}  // namespace
