#include "common/Progress.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include <unistd.h>

#include <fmt/format.h>

namespace tools {
namespace {

constexpr auto kDelay = std::chrono::milliseconds(500);
constexpr auto kInterval = std::chrono::milliseconds(100);
constexpr int kWidth = 40;

}  // namespace

Progress::Progress(std::string label, std::int64_t total, bool quiet)
    : fLabel(std::move(label)),
      fTotal(total),
      fActive(!quiet && total > 0 && isatty(STDERR_FILENO) != 0),
      fNext(Clock::now() + kDelay) {}

Progress::~Progress() {
  if (fDrawn) fmt::print(stderr, "\r\x1b[K");
}

void Progress::update(std::int64_t done) {
  if (!fActive || Clock::now() < fNext) return;
  fNext = Clock::now() + kInterval;
  fDrawn = true;
  const double part = std::clamp(static_cast<double>(done) / static_cast<double>(fTotal), 0.0, 1.0);
  const auto filled = static_cast<std::size_t>(part * kWidth);
  fmt::print(stderr, "\r{} [{:<{}}] {:3.0f}%", fLabel, std::string(filled, '#'), kWidth,
             part * 100);
  std::fflush(stderr);
}

}  // namespace tools
