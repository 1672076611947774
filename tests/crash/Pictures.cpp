#include "crash/Pictures.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <sstream>

#include <cairo.h>
#include <zlib.h>

namespace crash {

namespace {

constexpr std::uint32_t kPeak = 0x8DB8EA, kRMS = 0x2C6FC2;
constexpr const char* kPeakInSVG = "fill:rgb(55.294118%,72.156863%,91.764706%)";
constexpr const char* kRMSInSVG = "fill:rgb(17.254902%,43.529412%,76.078431%)";

// Each chunk is as it was written, and the last is there.
bool isWholePNG(const std::string& bytes) {
  constexpr std::size_t kSignature = 8, kLength = 4, kAround = 12;
  if (bytes.compare(0, 4, "\x89PNG") != 0) return false;
  const auto number = [&](std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i)
      value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
  };
  std::size_t at = kSignature;
  std::size_t size = 0;
  for (; at + kAround <= bytes.size(); at += kAround + size) {
    size = number(at);
    if (size > bytes.size() - at - kAround) return false;
    const auto* const begin = reinterpret_cast<const Bytef*>(bytes.data()) + at + kLength;
    if (crc32(0, begin, static_cast<uInt>(size + 4)) != number(at + 8 + size)) return false;
  }
  return at == bytes.size() && size == 0 && at > kSignature;
}

cairo_status_t readOn(void* stream, unsigned char* to, unsigned size) {
  auto& in = *static_cast<std::istringstream*>(stream);
  in.read(reinterpret_cast<char*>(to), static_cast<std::streamsize>(size));
  return in ? CAIRO_STATUS_SUCCESS : CAIRO_STATUS_READ_ERROR;
}

std::optional<std::string> waveInPNG(const std::string& bytes) {
  std::istringstream in(bytes);
  const std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> surface(
      cairo_image_surface_create_from_png_stream(readOn, &in), cairo_surface_destroy);
  if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) return {};
  const int width = cairo_image_surface_get_width(surface.get());
  std::string wave;
  bool hasPeak = false;
  bool hasRMS = false;
  for (int y = 0; y < cairo_image_surface_get_height(surface.get()); ++y) {
    const auto* const row =
        reinterpret_cast<const std::uint32_t*>(cairo_image_surface_get_data(surface.get()) +
                                               y * cairo_image_surface_get_stride(surface.get()));
    for (int x = 0; x < width; ++x) {
      const std::uint32_t colour = row[x] & 0xFFFFFF;
      hasPeak = hasPeak || colour == kPeak;
      hasRMS = hasRMS || colour == kRMS;
      wave += colour == kPeak ? 'p' : colour == kRMS ? 'r' : ' ';
    }
    wave += '\n';
  }
  return hasPeak && hasRMS ? std::optional<std::string>(wave) : std::nullopt;
}

std::optional<std::string> waveInSVG(const std::string& bytes) {
  const std::string end = "</svg>\n";
  const bool isWhole =
      bytes.size() > end.size() && bytes.compare(bytes.size() - end.size(), end.size(), end) == 0;
  if (!isWhole) return {};
  std::istringstream lines(bytes);
  std::string wave;
  bool hasPeak = false;
  bool hasRMS = false;
  for (std::string line; std::getline(lines, line);) {
    const auto has = [&](const char* word) { return line.find(word) != std::string::npos; };
    const bool isPeak = has(kPeakInSVG);
    const bool isRMS = has(kRMSInSVG);
    hasPeak = hasPeak || isPeak;
    hasRMS = hasRMS || isRMS;
    if (isPeak || isRMS || has("<svg ")) wave += line + "\n";
  }
  return hasPeak && hasRMS ? std::optional<std::string>(wave) : std::nullopt;
}

}  // namespace

std::optional<std::string> waveIn(const std::string& bytes) {
  if (isWholePNG(bytes)) return waveInPNG(bytes);
  if (bytes.compare(0, 5, "<?xml") == 0) return waveInSVG(bytes);
  return {};
}

}  // namespace crash
