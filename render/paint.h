// Drawing helpers that the pictures of dialogs and of the module's windows
// share: colours as 0xRRGGBB, framed boxes and one line of text.
#pragma once

#include <cairo.h>

#include <string>

#include "common/text.h"

namespace vantry::render::paint {

constexpr double kFont = 12;

inline void rgb(cairo_t *cr, unsigned c) {
  cairo_set_source_rgb(cr, ((c >> 16) & 255) / 255.0, ((c >> 8) & 255) / 255.0, (c & 255) / 255.0);
}

// A box filled and framed by a one-pixel line on the pixel grid.
inline void box(cairo_t *cr, double x, double y, double w, double h, unsigned fill, unsigned line) {
  cairo_rectangle(cr, x + 0.5, y + 0.5, w - 1, h - 1);
  rgb(cr, fill);
  cairo_fill_preserve(cr);
  rgb(cr, line);
  cairo_set_line_width(cr, 1);
  cairo_stroke(cr);
}

// One line of text with its baseline at y. The path is cleared after it:
// showing text leaves a current point, from which the next arc drawn
// would start with a line.
inline void text(cairo_t *cr, const std::wstring &s, double x, double y, unsigned color = 0, bool bold = false) {
  cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cr, kFont);
  rgb(cr, color);
  cairo_move_to(cr, x, y);
  cairo_show_text(cr, text::toUtf8(s).c_str());
  cairo_new_path(cr);
}

// The baseline of text centred on a line of a box: a little below the middle.
inline double baseline(double top, double height) { return top + height / 2 + kFont * 0.35; }

}  // namespace vantry::render::paint
