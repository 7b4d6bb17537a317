// A DCL dialog drawn as a person would see it: the frame and title bar, the
// clusters' boxes, and each tile in its state (edit box text, list items
// with the picked ones marked, toggles and radio buttons, images with what
// the program drew in them). The places are those of the dialog's layout
// (host/dcl/layout.cpp), one layout pixel a picture pixel.
#include <cairo.h>

#include <cmath>

#include "common/files.h"
#include "common/text.h"
#include "dcl/dcl.h"
#include "paint.h"
#include "render.h"

namespace vantry::render {
namespace {

namespace dcl = host::dcl;

using namespace paint;

constexpr int kBorder = 8, kTitle = 28;

// The host's colour numbers in an image: the first nine drawing colours,
// and the dialog's own (background -2 and -15, foreground -16, lines -18).
unsigned imageColor(int c) {
  static const unsigned aci[] = {0x000000, 0xff0000, 0xffff00, 0x00ff00, 0x00ffff, 0x0000ff, 0xff00ff, 0x000000, 0x808080, 0xc0c0c0};
  if (c >= 0 && c <= 9) return aci[c];
  if (c == -2 || c == -15) return 0xf0f0f0;
  if (c == -16 || c == -18) return 0x000000;
  return 0x808080;
}

class Painter {
 public:
  Painter(cairo_t *cr, dcl::Dialog &d) : cr_(cr), d_(d) {}

  void tile(const dcl::Tile &t) {
    dcl::TileState *st = t.key().empty() ? nullptr : d_.find(t.key());
    bool enabled = !st ? t.str(L"is_enabled") != L"false" : st->enabled;
    unsigned ink = enabled ? 0x000000 : 0xa0a0a0;
    std::wstring label = dcl::shownLabel(t.str(L"label"));
    std::wstring value = st ? d_.value(*st) : t.str(L"value");
    double x = t.x, y = t.y, w = t.width, h = t.height;
    const std::wstring &k = t.kind;
    int labelW = label.empty() ? 0 : dcl::textWidth(label) + dcl::kCharWidth;
    if (k.rfind(L"boxed_", 0) == 0) {
      double top = y + (label.empty() ? 2 : dcl::kLineHeight / 4);
      cairo_rectangle(cr_, x + 2.5, top + 0.5, w - 5, h - (top - y) - 3);
      rgb(cr_, 0xa0a0a0);
      cairo_set_line_width(cr_, 1);
      cairo_stroke(cr_);
      if (!label.empty()) {
        box(cr_, x + 8, y, dcl::textWidth(label) + 4, dcl::kLineHeight / 2 + 2, 0xf0f0f0, 0xf0f0f0);
        text(cr_, label, x + 10, y + dcl::kLineHeight / 2 + 2, ink);
      }
    } else if (k == L"button") {
      bool isDefault = t.flag(L"is_default");
      box(cr_, x, y, w, h, 0xe1e1e1, isDefault ? 0x0078d7 : 0xadadad);
      cairo_text_extents_t e;
      cairo_set_font_size(cr_, kFont);
      cairo_text_extents(cr_, text::toUtf8(label).c_str(), &e);
      text(cr_, label, x + (w - e.x_advance) / 2, baseline(y, h), ink);
    } else if (k == L"edit_box" || k == L"popup_list") {
      if (!label.empty()) text(cr_, label, x, baseline(y, h), ink);
      double fx = x + labelW, fw = w - labelW;
      box(cr_, fx, y + 1, fw, h - 2, enabled ? 0xffffff : 0xf0f0f0, 0x7a7a7a);
      std::wstring shown = value;
      if (k == L"popup_list") {
        shown.clear();
        long i = value.empty() ? -1 : std::wcstol(value.c_str(), nullptr, 10);
        if (st && i >= 0 && size_t(i) < st->list.size()) shown = st->list[size_t(i)];
        double ax = fx + fw - 12, ay = y + h / 2 - 2;
        cairo_move_to(cr_, ax, ay);
        cairo_line_to(cr_, ax + 8, ay);
        cairo_line_to(cr_, ax + 4, ay + 5);
        cairo_close_path(cr_);
        rgb(cr_, 0x404040);
        cairo_fill(cr_);
      } else if (!t.str(L"password_char").empty()) {
        shown = std::wstring(value.size(), t.str(L"password_char")[0]);
      }
      cairo_save(cr_);
      cairo_rectangle(cr_, fx + 1, y, fw - (k == L"popup_list" ? 16 : 2), h);
      cairo_clip(cr_);
      text(cr_, shown, fx + 4, baseline(y, h), ink);
      cairo_restore(cr_);
    } else if (k == L"list_box") {
      double top = y;
      if (!label.empty()) {
        text(cr_, label, x, baseline(y, dcl::kLineHeight), ink);
        top += dcl::kLineHeight;
      }
      box(cr_, x, top, w, y + h - top, enabled ? 0xffffff : 0xf0f0f0, 0x7a7a7a);
      std::vector<bool> picked(st ? st->list.size() : 0);
      for (size_t pos = 0; pos < value.size();) {
        size_t i = size_t(std::wcstol(value.c_str() + pos, nullptr, 10));
        if (i < picked.size()) picked[i] = true;
        size_t sp = value.find(L' ', pos);
        pos = sp == std::wstring::npos ? value.size() : sp + 1;
      }
      cairo_save(cr_);
      cairo_rectangle(cr_, x + 1, top + 1, w - 2, y + h - top - 2);
      cairo_clip(cr_);
      double ly = top + 2;
      for (size_t i = 0; st && i < st->list.size() && ly < y + h; ++i, ly += dcl::kLineHeight) {
        if (picked[i]) box(cr_, x + 2, ly, w - 4, dcl::kLineHeight, 0x0078d7, 0x0078d7);
        text(cr_, st->list[i], x + 4, baseline(ly, dcl::kLineHeight), picked[i] ? 0xffffff : ink);
      }
      cairo_restore(cr_);
    } else if (k == L"toggle") {
      double by = y + (h - 12) / 2;
      box(cr_, x + 1, by, 12, 12, 0xffffff, 0x333333);
      if (value == L"1") {
        cairo_move_to(cr_, x + 3.5, by + 6);
        cairo_line_to(cr_, x + 6, by + 9);
        cairo_line_to(cr_, x + 11, by + 3);
        rgb(cr_, 0x000000);
        cairo_set_line_width(cr_, 2);
        cairo_stroke(cr_);
      }
      text(cr_, label, x + 16, baseline(y, h), ink);
    } else if (k == L"radio_button") {
      double cx = x + 7, cy = y + h / 2;
      cairo_arc(cr_, cx, cy, 6, 0, 2 * M_PI);
      rgb(cr_, 0xffffff);
      cairo_fill_preserve(cr_);
      rgb(cr_, 0x333333);
      cairo_set_line_width(cr_, 1);
      cairo_stroke(cr_);
      if (value == L"1") {
        cairo_arc(cr_, cx, cy, 3, 0, 2 * M_PI);
        rgb(cr_, 0x000000);
        cairo_fill(cr_);
      }
      text(cr_, label, x + 16, baseline(y, h), ink);
    } else if (k == L"text" || k == L"text_part") {
      text(cr_, st ? value.empty() ? label : value : dcl::shownLabel(t.str(L"label", value)), x, baseline(y, h),
           t.key() == L"error" ? 0xc00000 : ink, t.flag(L"is_bold"));
    } else if (k == L"slider") {
      double lo = t.number(L"min_value", 0), hi = t.number(L"max_value", 10000);
      double v = value.empty() ? lo : std::wcstod(value.c_str(), nullptr);
      double f = hi > lo ? (v - lo) / (hi - lo) : 0;
      cairo_move_to(cr_, x + 4, y + h / 2 + 0.5);
      cairo_line_to(cr_, x + w - 4, y + h / 2 + 0.5);
      rgb(cr_, 0x909090);
      cairo_set_line_width(cr_, 3);
      cairo_stroke(cr_);
      box(cr_, x + 4 + f * (w - 16), y + 2, 8, h - 4, 0x0078d7, 0x005a9e);
    } else if (k == L"image" || k == L"image_button") {
      int c = int(t.number(L"color", -2));
      box(cr_, x, y, w, h, imageColor(c), k == L"image_button" ? 0xadadad : 0x7a7a7a);
      if (st) image(*st, x, y, w, h);
    }
    for (const auto &c : t.children) tile(*c);
  }

 private:
  void image(const dcl::TileState &st, double x, double y, double w, double h) {
    cairo_save(cr_);
    cairo_rectangle(cr_, x, y, w, h);
    cairo_clip(cr_);
    for (const dcl::ImageOp &op : st.image) {
      if (op.kind == dcl::ImageOp::Fill) {
        cairo_rectangle(cr_, x + op.x1, y + op.y1, op.x2, op.y2);
        rgb(cr_, imageColor(op.color));
        cairo_fill(cr_);
      } else if (op.kind == dcl::ImageOp::Vector) {
        cairo_move_to(cr_, x + op.x1 + 0.5, y + op.y1 + 0.5);
        cairo_line_to(cr_, x + op.x2 + 0.5, y + op.y2 + 0.5);
        rgb(cr_, imageColor(op.color));
        cairo_set_line_width(cr_, 1);
        cairo_stroke(cr_);
      } else {
        // Slide files are not read: the slide's place and name show where
        // it would be.
        cairo_rectangle(cr_, x + op.x1 + 0.5, y + op.y1 + 0.5, op.x2 - 1, op.y2 - 1);
        rgb(cr_, 0x808080);
        cairo_stroke(cr_);
        text(cr_, op.slide, x + op.x1 + 3, y + op.y1 + kFont + 2, 0x808080);
      }
    }
    cairo_restore(cr_);
  }

  cairo_t *cr_;
  dcl::Dialog &d_;
};

}  // namespace

bool writeDialogPng(host::dcl::Dialog &dialog, const std::string &path, std::string *error) {
  const dcl::Tile &root = *dialog.root;
  int width = root.width + 2 * kBorder, height = root.height + kTitle + kBorder;
  cairo_surface_t *surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
  cairo_t *cr = cairo_create(surface);
  box(cr, 0, 0, width, height, 0xf0f0f0, 0x606060);
  box(cr, 0, 0, width, kTitle, 0x2b579a, 0x2b579a);
  text(cr, dialog.title, kBorder, baseline(0, kTitle), 0xffffff, true);
  cairo_translate(cr, kBorder, kTitle);
  Painter(cr, dialog).tile(root);
  cairo_destroy(cr);
  cairo_surface_flush(surface);
  bool ok = files::replaceFile(
      path, [&](const std::string &temp) { return cairo_surface_write_to_png(surface, temp.c_str()) == CAIRO_STATUS_SUCCESS; },
      error);
  cairo_surface_destroy(surface);
  if (!ok && error && error->empty()) *error = "cannot write " + path;
  return ok;
}

bool writeDialogPng(const std::wstring &dclFile, const std::wstring &name, const std::string &path,
                    std::string *error) {
  std::vector<dcl::Diagnostic> diags;
  std::shared_ptr<const dcl::File> file = dcl::loadFile(dclFile, &diags);
  if (!file) {
    std::string why = "cannot read the dialog file " + text::toUtf8(dclFile);
    for (const dcl::Diagnostic &d : diags)
      if (d.level == dcl::Diagnostic::Error) why += "\n" + text::toUtf8(d.text());
    if (error) *error = why;
    return false;
  }
  std::wstring why;
  std::unique_ptr<dcl::Dialog> dialog = dcl::makeDialog(file, name, &why);
  if (!dialog) {
    if (error) *error = text::toUtf8(why) + " in " + text::toUtf8(dclFile);
    return false;
  }
  return writeDialogPng(*dialog, path, error);
}

}  // namespace vantry::render
