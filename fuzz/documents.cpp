// A document through the bundle's selectors, as a host uses it. Documents that run into the
// divisions that the importer does not guard are left out.

#include <cstdlib>
#include <set>

#include "Input.h"
#include "plugin/Plugin.h"
#include "plugin/UnguardedFaults.h"
#include "support/TempDir.h"

namespace {

// Loaded before the fuzzer counts the edges that there are.
const Plugin plugin;

void require(bool holds) {
  if (!holds) std::abort();
}

void use(const std::string& path, fuzz::Input& script) {
  static const std::set<std::int32_t> kResults{0, 1, 38, -1};
  HostFile file(plugin);
  const auto opened = file.open(path);
  require(opened == 0 || opened == 31);
  if (opened != 0) return;
  require(file.getInfo() == 0);
  ChannelBuffers out(6, 256);
  for (int i = 0; i < 12; ++i) {
    const unsigned step = script.below(8);
    const auto position = static_cast<std::int64_t>(script.below(256)) * file.info.frameCount / 200;
    if (step == 0) {
      require(file.quiet() == 0);
      require(file.open(path) == 0);
    } else if (step == 1) {
      require(file.getInfo() == 0);
    } else {
      require(kResults.count(file.read(step == 2 ? -1 : position, script.below(256), out)) != 0);
    }
  }
}

}  // namespace

void fuzz::run(const std::uint8_t* data, std::size_t size) {
  static const support::TempDir folder;
  fuzz::Input input(data, size);
  const std::string script = input.bytes(32);
  const std::string path = folder.write("document.qsnd", input.rest());
  if (dividesByZero(audioOf(path))) return;
  fuzz::Input steps(reinterpret_cast<const std::uint8_t*>(script.data()), script.size());
  use(path, steps);
}
