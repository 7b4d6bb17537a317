// A module's own window (host/person.h) drawn as a person would see it as
// it opens: the frame and title bar, its text wrapped to the window's
// width, the grid with its header, numbered rows and cells of each kind
// (combo arrows, check boxes, button cells, tree boxes and indents), and the
// buttons at the bottom, the default one outlined. The look is that of the
// DCL dialogs' pictures (dialog.cpp).
#include <cairo.h>

#include <algorithm>

#include "common/files.h"
#include "common/text.h"
#include "host/person.h"
#include "paint.h"
#include "render.h"

namespace vantry::render {
namespace {

using paint::box;
using paint::rgb;

constexpr int kBorder = 8, kTitle = 28, kRow = 20, kChar = 7, kNumber = 40, kButtonW = 80, kButtonH = 24;
constexpr int kTextWidth = 60;  // characters of a text line when the window has no grid

// One line of text centred on a row from top, height high.
void text(cairo_t *cr, const std::wstring &s, double x, double top, double height, unsigned color = 0,
          bool bold = false) {
  paint::text(cr, s, x, paint::baseline(top, height), color, bold);
}

// Lines of at most `width` characters, broken at blanks where there is one.
std::vector<std::wstring> wrap(const std::wstring &s, size_t width) {
  std::vector<std::wstring> lines;
  size_t start = 0;
  while (start < s.size()) {
    size_t nl = s.find(L'\n', start);
    size_t end = std::min(nl == std::wstring::npos ? s.size() : nl, start + width);
    if (end < s.size() && end - start == width && s[end] != L'\n') {
      size_t blank = s.rfind(L' ', end);
      if (blank != std::wstring::npos && blank > start) end = blank;
    }
    lines.push_back(s.substr(start, end - start));
    start = end;
    if (start < s.size() && (s[start] == L' ' || s[start] == L'\n')) ++start;
  }
  return lines;
}

// A cell's text as far as it fits.
std::wstring fit(const std::wstring &s, int chars) {
  return int(s.size()) <= chars ? s : s.substr(0, std::max(chars - 1, 0)) + L"~";
}

// Text kept inside its cell: drawn clipped to the cell's box less `right`.
void clipped(cairo_t *cr, const std::wstring &s, double x, double y, double cellX, double w, double right = 2,
             unsigned color = 0, bool bold = false) {
  cairo_save(cr);
  cairo_rectangle(cr, cellX + 1, y + 1, w - right - 1, kRow - 2);
  cairo_clip(cr);
  text(cr, s, x, y, kRow, color, bold);
  cairo_restore(cr);
}

void cell(cairo_t *cr, const PersonWindow::Column &c, const PersonWindow::Row &r, const std::wstring &value, double x,
          double y, double w) {
  box(cr, x, y, w, kRow, 0xffffff, 0xd0d0d0);
  int chars = c.width;
  switch (c.kind) {
    case PersonWindow::kCheck: {
      double s = 12, bx = x + (w - s) / 2, by = y + (kRow - s) / 2;
      box(cr, bx, by, s, s, 0xffffff, 0x404040);
      if (value == L"1") {
        rgb(cr, 0x000000);
        cairo_set_line_width(cr, 2);
        cairo_move_to(cr, bx + 2.5, by + 6);
        cairo_line_to(cr, bx + 5, by + 9);
        cairo_line_to(cr, bx + 9.5, by + 3);
        cairo_stroke(cr);
      }
      return;
    }
    case PersonWindow::kButton:
      box(cr, x + 2, y + 2, w - 4, kRow - 4, 0xe1e1e1, 0xadadad);
      clipped(cr, fit(value, chars - 1), x + 6, y, x, w, 4);
      return;
    case PersonWindow::kCombo:
      box(cr, x + w - 16, y + 1, 15, kRow - 2, 0xf0f0f0, 0xd0d0d0);
      rgb(cr, 0x404040);
      cairo_move_to(cr, x + w - 12, y + 8);
      cairo_line_to(cr, x + w - 5, y + 8);
      cairo_line_to(cr, x + w - 8.5, y + 12);
      cairo_close_path(cr);
      cairo_fill(cr);
      clipped(cr, fit(value, chars - 2), x + 4, y, x, w, 17);
      return;
    case PersonWindow::kTree: {
      double indent = r.child ? 22 : 4;
      if (r.box != 0) {
        box(cr, x + 4, y + 5, 10, 10, 0xffffff, 0x808080);
        rgb(cr, 0x000000);
        cairo_set_line_width(cr, 1);
        cairo_move_to(cr, x + 6, y + 10.5);
        cairo_line_to(cr, x + 12, y + 10.5);
        if (r.box < 0) {
          cairo_move_to(cr, x + 9.5, y + 7);
          cairo_line_to(cr, x + 9.5, y + 13);
        }
        cairo_stroke(cr);
      }
      clipped(cr, fit(value, chars - 3), x + indent + (r.child ? 0 : 14), y, x, w);
      return;
    }
    default:
      clipped(cr, fit(value, chars), x + 4, y, x, w);
      return;
  }
}

}  // namespace

bool writeWindowPng(const PersonWindow &window, const std::string &path, std::string *error) {
  int gridWidth = window.columns.empty() ? 0 : kNumber;
  for (const PersonWindow::Column &c : window.columns) gridWidth += c.width * kChar + 8;
  int buttonsWidth = int(window.buttons.size()) * (kButtonW + 8);
  int inner = std::max({gridWidth, buttonsWidth, window.columns.empty() ? kTextWidth * kChar : 0, 200});
  std::vector<std::wstring> lines = wrap(window.text, size_t(std::max(inner / kChar, 10)));
  int textHeight = int(lines.size()) * 16 + (lines.empty() ? 0 : 8);
  int gridHeight = window.columns.empty() ? 0 : kRow * (int(std::max<size_t>(window.rows.size(), 1)) + 1) + 8;
  int width = inner + 2 * kBorder;
  int height = kTitle + kBorder + textHeight + gridHeight + kButtonH + 2 * kBorder;

  cairo_surface_t *surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
  cairo_t *cr = cairo_create(surface);
  box(cr, 0, 0, width, height, 0xf0f0f0, 0x606060);
  box(cr, 0, 0, width, kTitle, 0x2b579a, 0x2b579a);
  text(cr, window.caption, kBorder, 0, kTitle, 0xffffff, true);
  double y = kTitle + kBorder;
  for (const std::wstring &line : lines) {
    text(cr, line, kBorder, y, 16);
    y += 16;
  }
  if (!lines.empty()) y += 8;
  if (!window.columns.empty()) {
    double x = kBorder;
    box(cr, x, y, kNumber, kRow, 0xe8e8e8, 0xc0c0c0);
    x += kNumber;
    for (const PersonWindow::Column &c : window.columns) {
      double w = c.width * kChar + 8;
      box(cr, x, y, w, kRow, 0xe8e8e8, 0xc0c0c0);
      clipped(cr, fit(c.title, c.width), x + 4, y, x, w, 2, 0, true);
      x += w;
    }
    y += kRow;
    for (const PersonWindow::Row &r : window.rows) {
      x = kBorder;
      box(cr, x, y, kNumber, kRow, 0xe8e8e8, 0xc0c0c0);
      text(cr, std::to_wstring(r.number), x + 6, y, kRow, 0x404040);
      x += kNumber;
      for (size_t k = 0; k < window.columns.size(); ++k) {
        double w = window.columns[k].width * kChar + 8;
        cell(cr, window.columns[k], r, k < r.cells.size() ? r.cells[k] : L"", x, y, w);
        x += w;
      }
      y += kRow;
    }
    if (window.rows.empty()) {
      box(cr, kBorder, y, gridWidth, kRow, 0xffffff, 0xd0d0d0);
      text(cr, L"(no rows)", kBorder + kNumber + 4, y, kRow, 0x808080);
    }
  }
  // Buttons at the bottom right, the default (first) one outlined.
  double bx = width - kBorder - buttonsWidth + 8, by = height - kBorder - kButtonH;
  for (size_t i = 0; i < window.buttons.size(); ++i) {
    box(cr, bx, by, kButtonW, kButtonH, 0xe1e1e1, i == 0 ? 0x0078d7 : 0xadadad);
    text(cr, window.buttons[i], bx + (kButtonW - window.buttons[i].size() * kChar) / 2.0, by, kButtonH);
    bx += kButtonW + 8;
  }
  cairo_destroy(cr);
  cairo_surface_flush(surface);
  bool ok = files::replaceFile(
      path,
      [&](const std::string &temp) { return cairo_surface_write_to_png(surface, temp.c_str()) == CAIRO_STATUS_SUCCESS; },
      error);
  cairo_surface_destroy(surface);
  if (!ok && error && error->empty()) *error = "cannot write " + path;
  return ok;
}

}  // namespace vantry::render
