#include <cerrno>
#include <csignal>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

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

template <class Exception>
std::string toldOf(const Exception& raised) {
  tools::Session session;
  session.program = "program";
  char name[] = "program";
  char* arguments[] = {name, nullptr};
  testing::internal::CaptureStderr();
  const int status = tools::runProgram(
      session, [&](tools::Command&) { throw raised; }, 1, arguments);
  EXPECT_EQ(status, 3);
  return testing::internal::GetCapturedStderr();
}

TEST(Termination, AnExceptionOfALibraryIsToldByItsFirstLine) {
  EXPECT_EQ(toldOf(std::runtime_error("one line\nand another")), "program: one line\n");
  EXPECT_EQ(toldOf(std::system_error(ENOTDIR, std::generic_category(), "looking\nfor it")),
            "program: looking\n");
}

}  // namespace
