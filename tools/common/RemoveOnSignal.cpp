#include "common/RemoveOnSignal.h"

#include <algorithm>
#include <array>
#include <csignal>

#include <unistd.h>

namespace tools {
namespace {

std::array<char, 4096> gScratchToRemove;

void removeScratchAndDie(int signal) {
  removeScratch();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

// A signal that is ignored, as under nohup, stays so.
bool catchSignals() {
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    if (std::signal(signal, removeScratchAndDie) == SIG_IGN) std::signal(signal, SIG_IGN);
  }
  return true;
}

}  // namespace

void removeScratch() noexcept {
  if (gScratchToRemove[0] != '\0') unlink(gScratchToRemove.data());
}

void removeOnSignal(const std::string& scratch) {
  gScratchToRemove[0] = '\0';
  if (scratch.empty() || scratch.size() >= gScratchToRemove.size()) return;
  std::copy_n(scratch.c_str() + 1, scratch.size(), gScratchToRemove.data() + 1);
  gScratchToRemove[0] = scratch[0];  // last: the name counts from here on
  [[maybe_unused]] static const bool areCaught = catchSignals();
}

}  // namespace tools
