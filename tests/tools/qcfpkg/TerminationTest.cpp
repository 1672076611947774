#include <csignal>
#include <filesystem>
#include <new>
#include <stdexcept>

#include <gtest/gtest.h>

#include "common/Program.h"
#include "common/RemoveOnSignal.h"
#include "support/TempDir.h"

// Exceptions that cannot get out of where they are raised.

namespace {

template <class Exception>
void fail() {
  throw Exception();
}

struct Overflow : std::runtime_error {
  Overflow() : std::runtime_error("overflow") {}
};

// As the objects of the JSON library.
template <class Exception>
struct Needy {
  Needy() = default;
  ~Needy() { fail<Exception>(); }
};

template <class Exception>
int runNeedy() {
  tools::Session session;
  session.program = "program";
  char name[] = "program";
  char* arguments[] = {name, nullptr};
  return tools::runProgram(
      session, [](tools::Command&) { const Needy<Exception> needy; }, 1, arguments);
}

TEST(TerminationDeathTest, MemoryThatADestructorLacksIsToldInOneLineAndNoScratchFileIsLeft) {
  const support::TempDir folder;
  const std::string scratch = folder.write("scratch", "half of an output");
  EXPECT_EXIT(
      {
        tools::removeOnSignal(scratch);
        runNeedy<std::bad_alloc>();
      },
      testing::ExitedWithCode(3), "^program: out of memory\n$");
  EXPECT_FALSE(std::filesystem::exists(scratch));
}

TEST(TerminationDeathTest, AnyOtherExceptionThereEndsTheProgramAsEver) {
  EXPECT_EXIT(runNeedy<Overflow>(), testing::KilledBySignal(SIGABRT), "overflow");
}

}  // namespace
