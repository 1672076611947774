#include "common/Progress.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include <fmt/format.h>

#include "common/Terminal.h"

namespace tools {
namespace {

constexpr auto kDelay = std::chrono::milliseconds(500);
constexpr auto kInterval = std::chrono::milliseconds(100);
constexpr std::size_t kWidest = 40;

}  // namespace

Progress::Progress(std::string label, std::int64_t total, bool quiet, Unit unit)
    : fLabel(std::move(label)),
      fTotal(total),
      fUnit(unit),
      fActive(!quiet && terminalTakesEscapes()),
      fStart(Clock::now()),
      fNext(fStart + kDelay) {}

Progress::~Progress() {
  if (fDrawn) printError("\r\x1b[K");
}

std::string Progress::remarks(std::int64_t done, Clock::time_point now) const {
  const double seconds = std::chrono::duration<double>(now - fStart).count();
  const double rate = static_cast<double>(done) / seconds;
  std::string text;
  if (fUnit == Unit::Bytes) text += fmt::format(" {:.1f} MB/s", rate / 1e6);
  if (rate > 0 && fTotal > 0) {
    const auto left = static_cast<std::int64_t>(static_cast<double>(fTotal - done) / rate);
    text += fmt::format(" {}:{:02} left", left / 60, left % 60);
  }
  return text;
}

// The line must not wrap: what has no room is left out, the bar first.
std::string Progress::line(std::int64_t done, Clock::time_point now) const {
  const std::size_t room = terminalColumns() - 1;
  if (fTotal <= 0) {
    const std::string amount = fUnit == Unit::Bytes
                                   ? fmt::format("{:.1f} MB", static_cast<double>(done) / 1e6)
                                   : std::to_string(done);
    return (fLabel + " " + amount + remarks(done, now)).substr(0, room);
  }
  const std::int64_t counted = std::clamp(done, std::int64_t{0}, fTotal);
  const double part = static_cast<double>(counted) / static_cast<double>(fTotal);
  std::string line = fmt::format("{} {:3.0f}%", fLabel, part * 100);
  const std::string rest = remarks(counted, now);
  if (line.size() + rest.size() <= room) line += rest;
  const std::size_t width = std::min(kWidest, room > line.size() + 3 ? room - line.size() - 3 : 0);
  if (width >= 5) {
    const auto filled = static_cast<std::size_t>(part * static_cast<double>(width));
    line.insert(fLabel.size() + 1, fmt::format("[{:<{}}] ", std::string(filled, '#'), width));
  }
  return line.substr(0, room);
}

void Progress::update(std::int64_t done) {
  const auto now = Clock::now();
  if (!fActive || now < fNext) return;
  fNext = now + kInterval;
  fDrawn = true;
  printError("\r\x1b[K{}", line(done, now));
}

}  // namespace tools
