// The package tool on a damaged package: check reports, extract stays in its folder.

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "Input.h"
#include "qcfpkg/Commands.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;

// Tables and findings are not what is looked at here.
void silence() {
  const int nowhere = ::open("/dev/null", O_WRONLY);
  ::dup2(nowhere, STDOUT_FILENO);
  ::close(nowhere);
}

int qcfpkg(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "qcfpkg");
  std::vector<char*> pointers;
  for (std::string& argument : arguments)
    pointers.push_back(argument.data());
  return runQcfpkg(static_cast<int>(pointers.size()), pointers.data());
}

bool isExitCode(int code) {
  return code >= 0 && code <= 3;
}

}  // namespace

void fuzz::run(const std::uint8_t* data, std::size_t size) {
  static const bool silent = (silence(), true);
  static_cast<void>(silent);
  fuzz::Input input(data, size);
  const unsigned command = input.below(4);
  const support::TempDir world;
  const std::string path = world.write("a.pkg", input.rest());
  const fs::path target = world / "in/target";
  fs::create_directories(target);

  if (command == 0) {
    if (!isExitCode(qcfpkg({"--quiet", "check", "--json", path}))) std::abort();
  } else if (command == 1) {
    if (!isExitCode(qcfpkg({"--quiet", "list", "--json", path}))) std::abort();
  } else {
    const std::string limit = command == 2 ? "100K" : "1M";
    if (!isExitCode(
            qcfpkg({"--quiet", "extract", path, "-C", target.string(), "--max-size", limit}))) {
      std::abort();
    }
    std::size_t outside = 0;
    for (auto file = fs::recursive_directory_iterator(world.path()); file != fs::end(file);
         ++file) {
      if (file->path() == target) {
        file.disable_recursion_pending();
        continue;
      }
      ++outside;
    }
    if (outside != 2) std::abort();  // the package, and the folder that the target is in
  }
}
