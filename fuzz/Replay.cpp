// Runs inputs through a target without a fuzzer: the files named, and those in the folders named.
// What ends the fuzzer ends this, the heap here by what operator new gives. What C libraries take
// from malloc, zlib for one, only the fuzzer counts: outside of the sanitizers nobody tells the
// most that malloc gave meanwhile.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "Input.h"
#include "Limits.h"
#include "support/Allocations.h"

namespace {

int runs = 0;

void replay(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  std::fprintf(stderr, "%s\n", path.filename().c_str());  // the last one is the one that ended it
  const std::size_t before = allocations::bytesHeld();
  allocations::resetPeak();
  {
    const fuzz::TimeLimit limit;
    fuzz::run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
  if (allocations::bytesAtPeak() - before > fuzz::mayHold(bytes.size())) fuzz::failOverMemory();
  ++runs;
}

}  // namespace

int main(int argc, char** argv) {
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
