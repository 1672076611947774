#include <mutex>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "package/detail/PkgMutex.h"

namespace {

using pkg::PkgMutualExclusion;

static_assert(std::has_virtual_destructor_v<PkgMutualExclusion>);
static_assert(sizeof(PkgMutualExclusion) == sizeof(void*) + sizeof(pthread_mutex_t));
static_assert(!std::is_copy_constructible_v<PkgMutualExclusion>);

TEST(PkgMutualExclusion, LetsOneThreadInAtATime) {
  PkgMutualExclusion mutex;
  int unguarded = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 10000; ++i) {
        const std::lock_guard<PkgMutualExclusion> guard(mutex);
        ++unguarded;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(unguarded, 80000);
}

TEST(PkgMutualExclusion, IsReleasedWhenAnExceptionPasses) {
  PkgMutualExclusion mutex;
  EXPECT_THROW(
      {
        const std::lock_guard<PkgMutualExclusion> guard(mutex);
        throw std::runtime_error("on the way");
      },
      std::runtime_error);
  const std::lock_guard<PkgMutualExclusion> again(mutex);  // would hang otherwise
}

}  // namespace
