#pragma once

#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>
#include <string>

#include <cairo.h>

#include "WaveformLayout.h"

using Colour = std::uint32_t;  // 0xRRGGBB

// Where a text stands by its x.
enum class Align { Left, Centre, Right };

struct Font {
  double size;  // in pixels
  bool bold = false;
};

// Where it has no memory for what clips a shape, cairo leaves the shape out and has no error: only
// errno tells, which malloc() sets.
template <class Draw>
void withMemory(Draw draw) {
  errno = 0;
  draw();
  if (errno == ENOMEM) throw std::bad_alloc();
}

// Flat shapes and lines of text on a cairo context, which stays the caller's.
class Canvas {
public:
  explicit Canvas(cairo_t* context) : fContext(context) {}

  void fill(const Box& box, Colour colour, double radius = 0);
  // Adds a rectangle to the path that fillPath() fills; fractions of pixels are blended.
  void addBar(double x, double top, double width, double bottom);
  void fillPath(Colour colour);
  // Adds a point to the line that strokeLine() draws.
  void addPoint(double x, double y);
  void strokeLine(Colour colour, double width);
  void dot(double x, double y, double radius, Colour colour);

  // `y` is the baseline.
  void text(double x, double y, const std::string& text, Font font, Colour colour,
            Align align = Align::Left);
  double widthOf(const std::string& text, Font font);
  // The text, or as much of its beginning as fits, with an ellipsis.
  std::string fitting(const std::string& text, Font font, double width);
  // Keeps what follows inside the box, until release().
  void clip(const Box& box);
  void release();

private:
  void setColour(Colour colour);
  void setFont(Font font);
  void fillPath();

  cairo_t* fContext;
};
