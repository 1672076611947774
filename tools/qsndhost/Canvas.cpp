#include "Canvas.h"

#include <cmath>

#include "Words.h"

void Canvas::setColour(Colour colour) {
  const auto part = [&](int shift) { return static_cast<double>(colour >> shift & 0xFF) / 255; };
  cairo_set_source_rgb(fContext, part(16), part(8), part(0));
}

void Canvas::setFont(Font font) {
  cairo_select_font_face(fContext, "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                         font.bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(fContext, font.size);
}

void Canvas::fillPath() {
  withMemory([this] { cairo_fill(fContext); });
}

void Canvas::fill(const Box& box, Colour colour, double radius) {
  setColour(colour);
  if (radius <= 0) {
    cairo_rectangle(fContext, box.x, box.y, box.width, box.height);
  } else {
    const double quarter = std::acos(0.0);
    const double left = box.x + radius, right = box.x + box.width - radius;
    const double top = box.y + radius, bottom = box.y + box.height - radius;
    cairo_new_sub_path(fContext);
    cairo_arc(fContext, right, top, radius, -quarter, 0);
    cairo_arc(fContext, right, bottom, radius, 0, quarter);
    cairo_arc(fContext, left, bottom, radius, quarter, 2 * quarter);
    cairo_arc(fContext, left, top, radius, 2 * quarter, 3 * quarter);
    cairo_close_path(fContext);
  }
  fillPath();
}

void Canvas::addBar(double x, double top, double width, double bottom) {
  cairo_rectangle(fContext, x, top, width, bottom - top);
}

void Canvas::fillPath(Colour colour) {
  setColour(colour);
  fillPath();
}

void Canvas::addPoint(double x, double y) {
  cairo_line_to(fContext, x, y);
}

void Canvas::strokeLine(Colour colour, double width) {
  setColour(colour);
  cairo_set_line_width(fContext, width);
  cairo_set_line_join(fContext, CAIRO_LINE_JOIN_ROUND);
  cairo_set_line_cap(fContext, CAIRO_LINE_CAP_ROUND);
  withMemory([this] { cairo_stroke(fContext); });
}

void Canvas::dot(double x, double y, double radius, Colour colour) {
  setColour(colour);
  cairo_new_sub_path(fContext);
  cairo_arc(fContext, x, y, radius, 0, 4 * std::acos(0.0));
  fillPath();
}

double Canvas::widthOf(const std::string& text, Font font) {
  setFont(font);
  cairo_text_extents_t extents;
  cairo_text_extents(fContext, text.c_str(), &extents);
  return extents.x_advance;
}

void Canvas::text(double x, double y, const std::string& text, Font font, Colour colour,
                  Align align) {
  const double width = widthOf(text, font);
  if (align == Align::Centre) x -= std::round(width / 2);
  if (align == Align::Right) x -= width;
  setColour(colour);
  cairo_move_to(fContext, x, y);
  cairo_show_text(fContext, text.c_str());
  cairo_new_path(fContext);
}

std::string Canvas::fitting(const std::string& text, Font font, double width) {
  constexpr std::size_t kEllipsis = 3;  // bytes
  std::string cut = text;
  for (std::size_t size = text.size(); size > kEllipsis && widthOf(cut, font) > width; --size)
    cut = shortened(text, size - 1);
  return cut;
}

void Canvas::clip(const Box& box) {
  cairo_save(fContext);
  cairo_rectangle(fContext, box.x, box.y, box.width, box.height);
  withMemory([this] { cairo_clip(fContext); });
}

void Canvas::release() {
  cairo_restore(fContext);
}
