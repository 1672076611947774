#include <atomic>
#include <cstdlib>

#include <unistd.h>

#include <gtest/gtest.h>

#include "package/QCFPackage.h"

// What is left of the shared instances when a process ends.

namespace {

using Factory = pkg::zip::ZipPackageFactory<>;
using FileSystem = pkg::BasePkgFileSystem<>;
using HexStrings = pkg::BasePkgHexStrings<>;

// Access to a private static: an explicit instantiation may name it.
template <class Singleton, std::atomic<Singleton*>* instance>
struct Reveal {
  friend const std::atomic<Singleton*>& revealed(Singleton*) { return *instance; }
};
const std::atomic<Factory*>& revealed(Factory*);
const std::atomic<FileSystem*>& revealed(FileSystem*);
const std::atomic<HexStrings*>& revealed(HexStrings*);
template struct Reveal<Factory, &Factory::fInstance>;
template struct Reveal<FileSystem, &FileSystem::fInstance>;
template struct Reveal<HexStrings, &HexStrings::fInstance>;

template <class Singleton>
bool isThere() {
  return revealed(static_cast<Singleton*>(nullptr)).load() != nullptr;
}

// Registered before the instances are made, and so called after they are destroyed.
void lookAround() {
  const bool gone = !isThere<Factory>() && !isThere<FileSystem>() && !isThere<HexStrings>();
  ::_exit(gone ? 0 : 1);
}

void makeAndEnd() {
  if (std::atexit(lookAround) != 0) ::_exit(2);
  Factory::getInstance();
  FileSystem::getInstance();
  HexStrings::getInstance();
  if (!isThere<Factory>() || !isThere<FileSystem>() || !isThere<HexStrings>()) ::_exit(3);
  std::exit(4);  // which lookAround() replaces
}

TEST(SingletonsDeathTest, NothingPointsToAnInstanceThatIsDestroyed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(makeAndEnd(), testing::ExitedWithCode(0), "");
}

}  // namespace
