// Runs inputs through a target without a fuzzer: the files named, and those in the folders named.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "Input.h"

namespace {

int runs = 0;

void replay(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  fuzz::run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
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
