// Runs inputs through a target without a fuzzer: the files named, and those in the folders named.
// What ends the fuzzer ends this: over five seconds, here of the processor, and a heap that grows
// by more than 64 MiB and four times the input, here by what operator new gives. What C libraries
// take from malloc, zlib for one, only the fuzzer counts: outside of the sanitizers nobody tells
// the most that malloc gave meanwhile.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <sys/time.h>
#include <unistd.h>

#include "Input.h"
#include "support/Allocations.h"

namespace {

constexpr time_t kSeconds = 5;
constexpr std::size_t kMemory = 64U << 20;

int runs = 0;

void tooSlow(int) {
  constexpr char kText[] = "fuzz: an input took over five seconds\n";
  if (write(STDERR_FILENO, kText, sizeof kText - 1) < 0) _exit(1);
  std::abort();
}

void setTimer(time_t seconds) {
  itimerval timer{};
  timer.it_value.tv_sec = seconds;
  setitimer(ITIMER_PROF, &timer, nullptr);
}

void replay(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  std::fprintf(stderr, "%s\n", path.filename().c_str());  // the last one is the one that ended it
  const std::size_t before = allocations::bytesHeld();
  allocations::resetPeak();
  setTimer(kSeconds);
  fuzz::run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  setTimer(0);
  if (allocations::bytesAtPeak() - before > kMemory + 4 * bytes.size()) {
    std::fputs("fuzz: the heap grew by more than 64 MiB and four times the input\n", stderr);
    std::abort();
  }
  ++runs;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPROF, tooSlow);
  for (int i = 1; i < argc; ++i) {
    if (!std::filesystem::is_directory(argv[i])) {
      replay(argv[i]);
      continue;
    }
    for (const auto& file : std::filesystem::recursive_directory_iterator(argv[i]))
      if (file.is_regular_file()) replay(file.path());
  }
  std::printf("%d inputs\n", runs);
  return runs == 0;
}
