// A document through the bundle's selectors, as a host uses it: opened or refused as its bytes say,
// and every call with an answer that is documented. Calls that run into the divisions that the
// importer does not guard are left out.

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

void use(const std::string& path, bool hasLayout, fuzz::Input& script) {
  static const std::set<std::int32_t> kResults{0, 1, 38, -1};
  HostFile file(plugin);
  require(file.open(path) == 0);
  if (hasLayout) require(file.getInfo() == 0);
  ChannelBuffers out(6, 256);
  for (int i = 0; i < 12; ++i) {
    const unsigned step = script.below(8);
    const auto position = static_cast<std::int64_t>(script.below(256)) * file.info.frameCount / 200;
    if (step == 0) {
      require(file.quiet() == 0);
      require(file.open(path) == 0);
    } else if (step == 1) {
      if (hasLayout) require(file.getInfo() == 0);
    } else {
      const auto result = file.read(step == 2 ? -1 : position, script.below(256), out);
      require(hasLayout ? kResults.count(result) != 0 : result == 1);
    }
  }
}

void requireRefused(const std::string& path) {
  HostFile file(plugin);
  require(file.open(path) == 31);
}

}  // namespace

void fuzz::run(const std::uint8_t* data, std::size_t size) {
  static const support::TempDir folder;
  fuzz::Input input(data, size);
  const std::string script = input.bytes(32);
  const std::string path = folder.write("document.qsnd", input.rest());
  const Import expected = importOf(path);
  if (expected == Import::FaultsInOpen) return;
  if (expected == Import::Refused) return requireRefused(path);
  fuzz::Input steps(reinterpret_cast<const std::uint8_t*>(script.data()), script.size());
  use(path, expected == Import::Opened, steps);
}
