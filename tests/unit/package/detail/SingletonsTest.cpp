#include <atomic>
#include <cstdlib>
#include <new>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "package/QCFPackage.h"

#include "support/Allocations.h"

namespace {

// Every thread asks at the same moment; each gets the one instance.
template <class Singleton>
bool allThreadsGetOne() {
  constexpr int kThreads = 16;
  std::atomic<int> waiting{kThreads};
  std::vector<Singleton*> got(kThreads, nullptr);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      --waiting;
      while (waiting.load() != 0)
        std::this_thread::yield();
      got[static_cast<std::size_t>(i)] = Singleton::getInstance();
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  for (const Singleton* instance : got) {
    if (instance == nullptr || instance != got.front()) return false;
  }
  return got.front() == Singleton::getInstance();
}

// A process of its own, in which no instance has been made yet; it also has to end well.
template <class Singleton>
void expectOneInAFreshProcess() {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::exit(allThreadsGetOne<Singleton>() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(SingletonsDeathTest, SixteenThreadsMakeOneFactory) {
  expectOneInAFreshProcess<pkg::zip::ZipPackageFactory<>>();
}

TEST(SingletonsDeathTest, SixteenThreadsMakeOneFileSystem) {
  expectOneInAFreshProcess<pkg::BasePkgFileSystem<>>();
}

TEST(SingletonsDeathTest, SixteenThreadsMakeOneHexCodec) {
  expectOneInAFreshProcess<pkg::BasePkgHexStrings<>>();
}

TEST(SingletonsDeathTest, FactoryAndFileSystemAskedForAtOnceDoNotBlockEachOther) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        std::vector<std::thread> threads;
        for (int i = 0; i < 16; ++i) {
          threads.emplace_back([i] {
            if (i % 2 == 0) {
              pkg::zip::ZipPackageFactory<>::getInstance();
            } else {
              pkg::BasePkgFileSystem<>::getInstance();
            }
          });
        }
        for (std::thread& thread : threads)
          thread.join();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

// Whether an instance whose making failed is made by the next call: neither a lock nor half an
// instance has been left.
template <class Singleton>
bool isMadeAfterAFailure() {
  bool failed = false;
  allocations::fail(1);
  try {
    Singleton::getInstance();
  } catch (const std::bad_alloc&) {
    failed = true;
  }
  allocations::endShortage();
  return failed && Singleton::getInstance() != nullptr;
}

TEST(SingletonsDeathTest, AFileSystemThatCouldNotBeMadeIsMadeByTheNextCall) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::exit(isMadeAfterAFailure<pkg::BasePkgFileSystem<>>() ? 0 : 1),
              testing::ExitedWithCode(0), "");
}

// Its making fails while the file system's lock is held as well as its own.
TEST(SingletonsDeathTest, AFactoryThatCouldNotBeMadeIsMadeByTheNextCall) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::exit(isMadeAfterAFailure<pkg::zip::ZipPackageFactory<>>() ? 0 : 1),
              testing::ExitedWithCode(0), "");
}

}  // namespace
