#include "Words.h"

#include <cmath>

#include <fmt/format.h>

namespace {

// Null where the number is of no format that becomes audio.
const char* nameOf(std::int32_t sampleFormat) {
  switch (sampleFormat) {
    case 2:
      return "8-bit integer";
    case 3:
      return "16-bit integer";
    case 4:
      return "24-bit integer";
    case 6:
      return "32-bit float";
    default:
      return nullptr;
  }
}

}  // namespace

std::string sampleFormatName(std::int32_t number) {
  const char* const name = nameOf(number);
  return name == nullptr ? "unknown" : name;
}

bool isKnownSampleFormat(std::int32_t number) {
  return nameOf(number) != nullptr;
}

std::string rateText(float rate) {
  return rate >= 1000 ? fmt::format("{:g} kHz", static_cast<double>(rate) / 1000)
                      : fmt::format("{:g} Hz", static_cast<double>(rate));
}

std::string countText(std::int64_t count, const std::string& noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

double secondsOf(const hostkit::AudioInfo& info) {
  return info.sampleRate > 0 ? static_cast<double>(info.frames) / info.sampleRate : 0;
}

std::string durationText(const hostkit::AudioInfo& info) {
  if (!(info.sampleRate > 0)) return "unknown";
  const auto milliseconds = std::llround(secondsOf(info) * 1000);
  return fmt::format("{}:{:02}:{:02}.{:03}", milliseconds / 3600000, milliseconds / 60000 % 60,
                     milliseconds / 1000 % 60, milliseconds % 1000);
}

std::string shortDurationText(const hostkit::AudioInfo& info) {
  const double seconds = secondsOf(info);
  std::string text = durationText(info);
  const bool isBelowAnHour = text.rfind("0:", 0) == 0;  // as it was rounded
  if (!isBelowAnHour) return text;
  if (seconds < 0.9995) return fmt::format("{:.4g} ms", seconds * 1000);
  const std::string withoutHours = text.substr(2);
  return withoutHours.front() == '0' ? withoutHours.substr(1) : withoutHours;
}

std::string shortened(const std::string& text, std::size_t size) {
  const std::string ellipsis = "…";
  if (text.size() <= size) return text;
  std::size_t end = size < ellipsis.size() ? 0 : size - ellipsis.size();
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
    --end;
  return text.substr(0, end) + ellipsis;
}
