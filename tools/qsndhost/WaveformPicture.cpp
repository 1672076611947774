#include "WaveformPicture.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <stdexcept>

#include <cairo-svg.h>
#include <unistd.h>

#include <fmt/format.h>

#include "Canvas.h"
#include "TimeAxis.h"
#include "common/Failure.h"

namespace {

struct Palette {
  Colour paper, lane, grid, zero, frame, peak, rms, over, title, text;
};

constexpr Palette kLight{0xFFFFFF, 0xF3F5F8, 0xE1E6ED, 0xB4BECB, 0xC3CBD6,
                         0x8DB8EA, 0x2C6FC2, 0xD64545, 0x17212E, 0x5C6A7A};
constexpr Palette kDark{0x12161C, 0x1B2129, 0x2A323D, 0x4A5665, 0x3B4654,
                        0x2F74C0, 0x8CC4FF, 0xFF6B6B, 0xEEF2F7, 0x98A5B5};

constexpr Font kTitle{16, true}, kDetails{12}, kSmall{11}, kChannel{12, true};

// The row of the zero line.
int middleOf(const Box& lane) {
  return lane.y + lane.height / 2;
}

// A row of pixels for a level; 1 is the upper edge of the lane, -1 the lower.
double rowOf(const Box& lane, double level) {
  return lane.y + (1 - std::clamp(level, -1.0, 1.0)) / 2 * lane.height;
}

class Painter {
public:
  Painter(cairo_t* context, const Palette& palette, const WaveformLayout& layout,
          const WaveformTexts& texts, const WaveformSummary& summary)
      : fCanvas(context), fPalette(palette), fLayout(layout), fTexts(texts), fSummary(summary) {}

  void paint() {
    fCanvas.fill({0, 0, fLayout.width, fLayout.height}, fPalette.paper);
    if (fLayout.hasHeader) paintHeader();
    for (const Box& lane : fLayout.lanes)
      fCanvas.fill(lane, fPalette.lane, lane.height >= 40 ? 3 : 0);
    paintTimes();
    for (std::size_t i = 0; i < fLayout.lanes.size(); ++i)
      paintLane(i, fLayout.lanes[i]);
  }

private:
  void paintHeader();
  double paintLegend(double right);
  void paintTimes();
  void paintTime(const TimeMark& mark, double& free);
  void paintLane(std::size_t channel, const Box& lane);
  void paintScale(std::size_t channel, const Box& lane);
  void paintBars(const std::vector<WaveformColumn>& columns, const Box& lane);
  void addBars(const std::vector<WaveformColumn>& columns, const Box& lane, bool rms);
  void paintLine(const std::vector<WaveformColumn>& columns, const Box& lane);
  void paintClipping(const std::vector<WaveformColumn>& columns, const Box& lane);

  Canvas fCanvas;
  const Palette& fPalette;
  const WaveformLayout& fLayout;
  const WaveformTexts& fTexts;
  const WaveformSummary& fSummary;
};

void Painter::paintHeader() {
  const double left = fLayout.plot.x, right = fLayout.plot.x + fLayout.plot.width;
  const double room = right - left;
  fCanvas.text(left, 27, fCanvas.fitting(fTexts.name, kTitle, room), kTitle, fPalette.title);
  const double legend = paintLegend(right);
  const std::string details = fCanvas.fitting(fTexts.details, kDetails, room - legend);
  fCanvas.text(left, 46, details, kDetails, fPalette.text);
}

// The room that it takes; none where the details need all of it, or there is nothing to explain.
double Painter::paintLegend(double right) {
  constexpr double kRoom = 116;
  const bool isLine = static_cast<int>(fSummary.columns()) < fLayout.plot.width;
  if (isLine || fLayout.plot.width < 420) return 0;
  const double y = 46;
  double x = right - kRoom + 16;
  for (const auto& [colour, word] : {std::pair{fPalette.peak, "Peak"}, {fPalette.rms, "RMS"}}) {
    fCanvas.fill({static_cast<int>(x), static_cast<int>(y) - 9, 9, 9}, colour, 2);
    fCanvas.text(x + 14, y, word, kDetails, fPalette.text);
    x += 14 + fCanvas.widthOf(word, kDetails) + 14;
  }
  return kRoom;
}

void Painter::paintTimes() {
  if (!fLayout.hasAxis || fTexts.span <= 0) return;
  const Box& plot = fLayout.plot;
  fCanvas.fill({plot.x, plot.y + plot.height + 3, plot.width, 1}, fPalette.frame);
  double free = 0;
  for (const TimeMark& mark : timeMarks(fTexts.start, fTexts.span, plot.width / 96.0))
    paintTime(mark, free);
}

// `free` is where the next label may begin.
void Painter::paintTime(const TimeMark& mark, double& free) {
  const Box& plot = fLayout.plot;
  const int bottom = plot.y + plot.height;
  const int x = plot.x + std::min(static_cast<int>(mark.position * plot.width), plot.width - 1);
  const bool labelled = !mark.label.empty();
  fCanvas.fill({x, bottom + 4, 1, labelled ? 5 : 3}, fPalette.frame);
  if (!labelled) return;
  for (const Box& lane : fLayout.lanes)
    fCanvas.fill({x, lane.y, 1, lane.height}, fPalette.grid);
  // A label at an edge is moved inside; one that would touch its neighbour is left out.
  const double width = fCanvas.widthOf(mark.label, kSmall);
  const double left = std::clamp(x - width / 2, 2.0, std::max(fLayout.width - width - 2, 2.0));
  if (left < free) return;
  fCanvas.text(left, bottom + 22, mark.label, kSmall, fPalette.text);
  free = left + width + 10;
}

void Painter::paintLane(std::size_t channel, const Box& lane) {
  if (lane.height >= 90) {
    for (const double level : {0.5, -0.5}) {
      fCanvas.fill({lane.x, static_cast<int>(rowOf(lane, level)), lane.width, 1}, fPalette.grid);
    }
  }
  fCanvas.fill({lane.x, middleOf(lane), lane.width, 1}, fPalette.zero);
  if (fLayout.hasScale) paintScale(channel, lane);
  if (channel >= fSummary.channels()) {
    if (fLayout.hasScale && channel < fTexts.channels) {
      fCanvas.text(lane.x + 10, middleOf(lane) - 5, "not delivered by the importer", kSmall,
                   fPalette.text);
    }
    return;
  }
  const auto& columns = fSummary.channel(channel);
  fCanvas.clip(lane);
  if (static_cast<int>(columns.size()) == lane.width) {
    paintBars(columns, lane);
  } else {
    paintLine(columns, lane);
  }
  paintClipping(columns, lane);
  fCanvas.release();
}

void Painter::paintScale(std::size_t channel, const Box& lane) {
  const double right = lane.x - 8;
  const double middle = middleOf(lane) + 4;
  if (fTexts.channels > 1) {
    const bool isStereo = fTexts.channels == 2;
    const std::string name = isStereo ? (channel == 0 ? "L" : "R") : std::to_string(channel + 1);
    fCanvas.text(right, middle, name, kChannel, fPalette.title, Align::Right);
  } else {
    fCanvas.text(right, middle, "0", kSmall, fPalette.text, Align::Right);
  }
  if (lane.height < 64) return;
  fCanvas.text(right, lane.y + 10, "1", kSmall, fPalette.text, Align::Right);
  fCanvas.text(right, lane.y + lane.height - 2, "−1", kSmall, fPalette.text, Align::Right);
}

void Painter::addBars(const std::vector<WaveformColumn>& columns, const Box& lane, bool rms) {
  for (std::size_t i = 0; i < columns.size(); ++i) {
    double maximum = columns[i].maximum, minimum = columns[i].minimum;
    if (rms) {
      // No further than the peaks go: audio that never crosses zero has its mean outside them.
      maximum = std::min<double>(columns[i].rms, maximum);
      minimum = std::max<double>(-columns[i].rms, minimum);
      if (maximum <= minimum) continue;
    } else if (i > 0) {
      // A step between two columns is a part of the wave.
      maximum = std::max<double>(maximum, columns[i - 1].minimum);
      minimum = std::min<double>(minimum, columns[i - 1].maximum);
    }
    double top = rowOf(lane, maximum), bottom = rowOf(lane, minimum);
    if (!rms && bottom - top < 1) {
      top = std::clamp((top + bottom - 1) / 2, lane.y + 0.0, lane.y + lane.height - 1.0);
      bottom = top + 1;
    }
    fCanvas.addBar(lane.x + static_cast<double>(i), top, 1, bottom);
  }
}

void Painter::paintBars(const std::vector<WaveformColumn>& columns, const Box& lane) {
  addBars(columns, lane, false);
  fCanvas.fillPath(fPalette.peak);
  addBars(columns, lane, true);
  fCanvas.fillPath(fPalette.rms);
}

// Fewer frames than pixels: each sample is a point.
void Painter::paintLine(const std::vector<WaveformColumn>& columns, const Box& lane) {
  const double step = static_cast<double>(lane.width) / static_cast<double>(columns.size());
  const auto xOf = [&](std::size_t i) { return lane.x + (static_cast<double>(i) + 0.5) * step; };
  for (std::size_t i = 0; i < columns.size(); ++i)
    fCanvas.addPoint(xOf(i), rowOf(lane, columns[i].maximum));
  fCanvas.strokeLine(fPalette.rms, 1.5);
  if (step < 8) return;
  for (std::size_t i = 0; i < columns.size(); ++i)
    fCanvas.dot(xOf(i), rowOf(lane, columns[i].maximum), 2.5, fPalette.rms);
}

// Levels above full scale are cut off at the lane's edge, and marked there.
void Painter::paintClipping(const std::vector<WaveformColumn>& columns, const Box& lane) {
  const double step = static_cast<double>(lane.width) / static_cast<double>(columns.size());
  const double mark = std::max(1, std::min(3, lane.height / 12));
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const double x = lane.x + static_cast<double>(i) * step;
    if (columns[i].maximum > 1) fCanvas.addBar(x, lane.y, step, lane.y + mark);
    const double bottom = lane.y + lane.height;
    if (columns[i].minimum < -1) fCanvas.addBar(x, bottom - mark, step, bottom);
  }
  fCanvas.fillPath(fPalette.over);
}

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;

cairo_status_t writeTo(void* descriptor, const unsigned char* bytes, unsigned int size) {
  while (size > 0) {
    const ssize_t written = ::write(*static_cast<const int*>(descriptor), bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return CAIRO_STATUS_WRITE_ERROR;
    bytes += written;
    size -= static_cast<unsigned int>(written);
  }
  return CAIRO_STATUS_SUCCESS;
}

void expect(cairo_status_t status) {
  if (status == CAIRO_STATUS_SUCCESS) return;
  throw std::runtime_error(status == CAIRO_STATUS_WRITE_ERROR ? tools::systemReason()
                                                              : cairo_status_to_string(status));
}

}  // namespace

void writeWaveform(int descriptor, PictureKind kind, Theme theme, const WaveformLayout& layout,
                   const WaveformTexts& texts, const WaveformSummary& summary) {
  const bool isPNG = kind == PictureKind::PNG;
  const Surface surface(
      isPNG
          ? cairo_image_surface_create(CAIRO_FORMAT_RGB24, layout.width, layout.height)
          : cairo_svg_surface_create_for_stream(writeTo, &descriptor, layout.width, layout.height),
      cairo_surface_destroy);
  if (!isPNG) cairo_svg_surface_set_document_unit(surface.get(), CAIRO_SVG_UNIT_PX);
  const std::unique_ptr<cairo_t, decltype(&cairo_destroy)> context(cairo_create(surface.get()),
                                                                   cairo_destroy);
  Painter(context.get(), theme == Theme::Dark ? kDark : kLight, layout, texts, summary).paint();
  expect(cairo_status(context.get()));
  if (isPNG) {
    cairo_surface_flush(surface.get());
    expect(cairo_surface_write_to_png_stream(surface.get(), writeTo, &descriptor));
  } else {
    withMemory([&] { cairo_surface_finish(surface.get()); });
  }
  expect(cairo_surface_status(surface.get()));
}
