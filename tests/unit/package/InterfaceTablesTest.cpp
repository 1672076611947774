#include <cstddef>
#include <cstring>
#include <initializer_list>

#include <gtest/gtest.h>

#include "package/QCFPackage.h"

// Clients call these interfaces, and implement some of them, in programs that were compiled apart
// from the library: an operation that is added or moved makes them call another.

namespace {

using namespace pkg;
using Mode = std::ios_base::openmode;
using String = AppContext::String;
using FileName = boost::shared_ptr<IPkgFSFileName<>>;
using File = boost::shared_ptr<IPkgFSFile<>>;
using Directory = SPRefType<IPkgDirectory<>>;

// The first word of a pointer to a virtual member grows by a fixed step from one place of the table
// to the next.
template <class Member>
std::ptrdiff_t firstWord(Member member) {
  std::ptrdiff_t word;
  static_assert(sizeof(member) >= sizeof(word));
  std::memcpy(&word, &member, sizeof(word));
  return word;
}

struct Ruler {
  virtual void first();
  virtual void second();
};
void Ruler::first() {}
void Ruler::second() {}

// The place of an operation in the table of its class, from 0. A destructor takes two.
template <class Member>
int placeOf(Member member) {
  const std::ptrdiff_t origin = firstWord(&Ruler::first);
  const std::ptrdiff_t step = firstWord(&Ruler::second) - origin;
  return static_cast<int>((firstWord(member) - origin) / step);
}

// One operation of several of the same name.
template <class Signature, class Class>
int placeOfOverload(Signature Class::*member) {
  return placeOf(member);
}

void expectFrom(int first, std::initializer_list<int> places) {
  for (const int place : places)
    EXPECT_EQ(place, first++);
}

constexpr int kBehindDestructor = 2;

TEST(InterfaceTables, OfFilesKeepTheirOrder) {
  using Common = IPkgFSFileCommon;
  expectFrom(kBehindDestructor,
             {placeOf(&Common::getMode), placeOf(&Common::close), placeOf(&Common::read),
              placeOf(&Common::write), placeOf(&Common::seek), placeOf(&Common::tell),
              placeOf(&Common::flush), placeOf(&Common::truncate),
              placeOf(&Common::getCapabilities), placeOf(&Common::isSeekable),
              placeOf(&IPkgFSFile<>::getFileSystem), placeOf(&IPkgFSFile<>::getName)});
  expectFrom(kBehindDestructor,
             {placeOf(&IPkgFSFileName<>::getFileSystem), placeOf(&IPkgFSFileName<>::getName)});
}

TEST(InterfaceTables, OfTheFileSystemHasItsDestructorLast) {
  using System = IPkgFileSystem<>;
  expectFrom(0, {placeOf(&System::openFile), placeOf(&System::createTempFile),
                 placeOf(&System::reopenTempFileByName), placeOf(&System::deleteTempFileByName),
                 placeOf(&System::getFSFileName)});
}

TEST(InterfaceTables, OfWhatClientsSupplyKeepTheirOrder) {
  expectFrom(kBehindDestructor, {placeOf(&IPkgPolicies::getPolicy)});
  expectFrom(0, {placeOf(&IXMLParser::setEventHandler), placeOf(&IXMLParser::parse),
                 placeOf(&IXMLParser::parseChunk), placeOf(&IXMLParser::getErrorText),
                 placeOf(&IXMLParser::finish)});
  using Handler = IXMLParser_EventHandler;
  expectFrom(kBehindDestructor,
             {placeOf(&Handler::startElement), placeOf(&Handler::endElement),
              placeOf(&Handler::characterData), placeOf(&Handler::processingInstruction),
              placeOf(&Handler::comment)});
}

TEST(InterfaceTables, OfPackagesKeepTheirOrder) {
  using P = IPackage<>;
  expectFrom(
      kBehindDestructor,
      {placeOf(&P::getOpenMode),
       placeOf(&P::setDefaultCompressionMethod),
       placeOf(&P::getDefaultCompressionMethod),
       placeOf(&P::isModified),
       placeOfOverload<void()>(&P::beginUpdate),
       placeOfOverload<void(const String&, Mode)>(&P::beginUpdate),
       placeOfOverload<void(const FileName&, Mode)>(&P::beginUpdate),
       placeOf(&P::doUNSAFEUpdateInPlace),
       placeOf(&P::endUpdate),
       placeOf(&P::cancelUpdate),
       placeOfOverload<void(const String&, Mode)>(&P::saveAs),
       placeOfOverload<void(const FileName&, Mode)>(&P::saveAs),
       placeOf(&P::close),
       placeOf(&P::closeWithoutSave),
       placeOfOverload<PkgEntryType(const String&)>(&P::entryExists),
       placeOfOverload<PkgEntryType(const String&, const Directory&)>(&P::entryExists),
       placeOfOverload<SPRefType<IPkgFile<>>(const String&, bool)>(&P::getFile),
       placeOfOverload<SPRefType<IPkgFile<>>(const String&, const Directory&, bool)>(&P::getFile),
       placeOfOverload<Directory(const String&, bool)>(&P::getDirectory),
       placeOfOverload<Directory(const String&, const Directory&, bool)>(&P::getDirectory),
       placeOf(&P::getRootDirectory),
       placeOf(&P::getName),
       placeOf(&P::getFSFile),
       placeOf(&P::setMIMEType),
       placeOf(&P::getMIMEType),
       placeOf(&P::getProperty),
       placeOf(&P::setProperty),
       placeOf(&P::getPolicies),
       placeOf(&P::checkConformance),
       placeOf(&P::getPolicy),
       placeOf(&P::initIterator)});
}

TEST(InterfaceTables, OfEntriesKeepTheirOrder) {
  using E = IPkgEntry<>;
  expectFrom(0, {placeOf(&E::remove), placeOf(&E::isDeleted), placeOf(&E::isModified),
                 placeOf(&E::setCompressionMethod), placeOf(&E::getCompressionMethod),
                 placeOf(&E::getName), placeOf(&E::getParent), placeOf(&E::getPackage),
                 placeOf(&E::addRef), placeOf(&E::release), placeOf(&E::getEntryType),
                 placeOf(&E::toFile), placeOf(&E::toDirectory)});
  using F = IPkgFile<>;
  expectFrom(placeOf(&F::open),
             {placeOf(&F::open), placeOf(&F::getSize), placeOf(&F::getCompressedSize),
              placeOf(&F::getSize64), placeOf(&F::getCompressedSize64),
              placeOf(&F::setExpectedSize), placeOf(&F::getCRC32), placeOf(&F::setExpectedCRC32),
              placeOf(&F::resolvePath), placeOf(&F::getProperty), placeOf(&F::setProperty)});
  EXPECT_EQ(placeOf(&IPkgDirectory<>::create), placeOf(&F::open)) << "behind what both share";
}

TEST(InterfaceTables, OfStreamsAndIteratorsKeepTheirOrder) {
  expectFrom(kBehindDestructor, {placeOf(&IPkgStream<>::close), placeOf(&IPkgStream<>::getFile)});
  using Iterator = IPkgEntryIteratorImpl<>;
  expectFrom(0, {placeOf(&Iterator::dereference), placeOf(&Iterator::increment),
                 placeOf(&Iterator::isValid)});
}

// The front door has the operations of the factory behind it at the same places.
template <class Factory>
void expectFactory() {
  using Package = boost::shared_ptr<IPackage<>>;
  using Policies = const IPkgPolicies*;
  using OpenPath = Package(const String&, Mode, IPkgFileSystem<>*, Policies, IXMLParser*);
  using OpenName = Package(const FileName&, Mode, Policies, IXMLParser*);
  using OpenFile = Package(const File&, Policies, IXMLParser*);
  using AcceptPath = bool(const String&, IPkgFileSystem<>*, Policies, IXMLParser*);
  using AcceptName = bool(const FileName&, Policies, IXMLParser*);
  using AcceptFile = bool(const File&, Policies, IXMLParser*);
  expectFrom(0, {placeOfOverload<OpenPath>(&Factory::openPackage),
                 placeOfOverload<OpenName>(&Factory::openPackage),
                 placeOfOverload<OpenFile>(&Factory::openPackage),
                 placeOf(&Factory::createConformingPackage),
                 placeOfOverload<AcceptPath>(&Factory::acceptPackage),
                 placeOfOverload<AcceptName>(&Factory::acceptPackage),
                 placeOfOverload<AcceptFile>(&Factory::acceptPackage),
                 placeOf(&Factory::setDefaultFileSystem), placeOf(&Factory::setPackageXMLParser)});
}

TEST(InterfaceTables, OfBothFactoriesHaveTheSameOrder) {
  expectFactory<BasePackageFactory<>>();
  expectFactory<QCFPackageFactory>();
}

TEST(InterfaceTables, OfExceptionsKeepTheirOrder) {
  expectFrom(kBehindDestructor,
             {placeOf(&PackageException<>::what), placeOf(&PackageException<>::getErrorCode)});
}

}  // namespace
