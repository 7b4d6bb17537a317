// The layout of a dialog's tiles, in pixels.
//
// Two passes, as the host lays dialogs out: each tile's least size from its
// contents and its width and height attributes (in characters and lines),
// then each cluster hands its children their places. A column gives its
// children its full width unless they are of fixed width (then they sit as
// their alignment says, left by default); a row gives each child its full
// height unless fixed, and shares its spare width among the children that
// are not of fixed width. Spare height in a column stays below the last
// child. An image sized by its aspect ratio (width over height) is of fixed
// size. Text is measured at a dialog font's average character width.
#include <algorithm>

#include "dcl/dcl.h"

namespace vantry::host::dcl {
namespace {

constexpr int kGap = 4;           // between the children of a cluster
constexpr int kBoxPad = 8;        // inside a boxed cluster's frame
constexpr int kDialogPad = 10;    // inside the dialog's frame
constexpr int kControlHeight = 22;  // buttons, edit boxes, popup lists
constexpr int kCheckSize = 16;    // a toggle's box, a radio button's circle and their gap

bool isRow(const Tile &t) { return t.kind.find(L"row") != std::wstring::npos || t.kind == L"concatenation"; }
bool isBoxed(const Tile &t) { return t.kind.rfind(L"boxed_", 0) == 0; }
int gapOf(const Tile &t) { return t.kind == L"concatenation" || t.kind == L"paragraph" ? 0 : kGap; }

int chars(const Tile &t, const wchar_t *attr, int fallback) {
  double v = t.number(attr, -1);
  return v < 0 ? fallback : int(v * kCharWidth + 0.5);
}
int lines(const Tile &t, const wchar_t *attr, int fallback) {
  double v = t.number(attr, -1);
  return v < 0 ? fallback : int(v * kLineHeight + 0.5);
}

// An image given one side and an aspect ratio keeps the size they make:
// stretching either side would break the ratio.
bool sizedByAspect(const Tile &t) {
  return (t.kind == L"image" || t.kind == L"image_button") && t.number(L"aspect_ratio", 0) > 0 &&
         !(t.attr(L"width") && t.attr(L"height"));
}
bool fixedWidth(const Tile &t) {
  return sizedByAspect(t) || t.flag(L"fixed_width") ||
         (t.parent && t.parent->flag(L"children_fixed_width") && !t.attr(L"fixed_width"));
}
bool fixedHeight(const Tile &t) {
  return sizedByAspect(t) || t.flag(L"fixed_height") ||
         (t.parent && t.parent->flag(L"children_fixed_height") && !t.attr(L"fixed_height"));
}

void measure(Tile &t) {
  for (auto &c : t.children) measure(*c);
  std::wstring label = shownLabel(t.str(L"label"));
  int labelW = label.empty() ? 0 : textWidth(label) + kCharWidth;
  int w = 0, h = 0;
  const std::wstring &k = t.kind;
  if (t.isCluster()) {
    int n = int(t.children.size()), gap = gapOf(t);
    for (auto &c : t.children) {
      if (isRow(t)) {
        w += c->width;
        h = std::max(h, c->height);
      } else {
        w = std::max(w, c->width);
        h += c->height;
      }
    }
    if (n > 1) (isRow(t) ? w : h) += gap * (n - 1);
    if (k == L"dialog") {
      w += 2 * kDialogPad;
      h += 2 * kDialogPad;
      w = std::max(w, textWidth(label) + 6 * kCharWidth);  // the title must fit its bar
    } else if (isBoxed(t)) {
      w = std::max(w + 2 * kBoxPad, labelW + 2 * kBoxPad);
      h += 2 * kBoxPad + (label.empty() ? 0 : kLineHeight / 2);
    }
  } else if (k == L"text" || k == L"text_part") {
    w = textWidth(shownLabel(t.str(L"label", t.str(L"value"))));
    h = kLineHeight;
  } else if (k == L"button") {
    w = textWidth(label) + 3 * kCharWidth;
    h = kControlHeight;
  } else if (k == L"edit_box" || k == L"popup_list") {
    int field = chars(t, L"edit_width", 0);
    if (field == 0) field = 8 * kCharWidth;
    w = labelW + field + (k == L"popup_list" ? kCheckSize : 0);
    h = kControlHeight;
  } else if (k == L"list_box") {
    w = std::max(labelW, 12 * kCharWidth);
    h = (label.empty() ? 0 : kLineHeight) + 10 * kLineHeight;
  } else if (k == L"toggle" || k == L"radio_button") {
    w = kCheckSize + textWidth(label);
    h = kLineHeight + 2;
  } else if (k == L"slider") {
    bool vertical = t.str(L"layout") == L"vertical";
    w = vertical ? 20 : 15 * kCharWidth;
    h = vertical ? 8 * kLineHeight : 20;
  } else if (k == L"image" || k == L"image_button") {
    // The aspect ratio is width over height; it gives the side not given.
    double aspect = t.number(L"aspect_ratio", 0);
    w = chars(t, L"width", 0);
    h = lines(t, L"height", 0);
    if (w == 0 && h > 0 && aspect > 0) w = int(h * aspect + 0.5);
    if (w == 0) w = 10 * kCharWidth;
    if (h == 0) h = aspect > 0 ? int(w / aspect + 0.5) : 4 * kLineHeight;
  } else if (k == L"spacer") {
    w = kCharWidth;
    h = kLineHeight / 2;
  }
  // width and height are least sizes; a list box's height counts its lines.
  if (k != L"dialog" && k != L"image" && k != L"image_button") {
    w = std::max(w, chars(t, L"width", 0));
    if (k == L"list_box" && t.attr(L"height"))
      h = (label.empty() ? 0 : kLineHeight) + lines(t, L"height", 0);
    else
      h = std::max(h, lines(t, L"height", 0));
  }
  if (k == L"spacer" && t.attr(L"width")) w = chars(t, L"width", 0);
  if (k == L"spacer" && t.attr(L"height")) h = lines(t, L"height", 0);
  t.width = w;
  t.height = h;
}

// Where a child of a given size sits in a span: its alignment (its own, or
// its cluster's children_alignment), the cross axis of the cluster.
int align(const Tile &c, int start, int span, int size, bool rowParent) {
  std::wstring a = c.str(L"alignment", c.parent ? c.parent->str(L"children_alignment") : L"");
  if (a.empty()) a = rowParent ? L"centered" : L"left";
  if (a == L"centered") return start + (span - size) / 2;
  if (a == L"right" || a == L"bottom") return start + span - size;
  return start;
}

void place(Tile &t, int x, int y, int w, int h) {
  t.x = x;
  t.y = y;
  t.width = w;
  t.height = h;
  if (t.children.empty()) return;
  int left = x, top = y, width = w, height = h;
  if (t.kind == L"dialog") {
    left += kDialogPad;
    top += kDialogPad;
    width -= 2 * kDialogPad;
    height -= 2 * kDialogPad;
  } else if (isBoxed(t)) {
    int labelH = t.str(L"label").empty() ? 0 : kLineHeight / 2;
    left += kBoxPad;
    top += kBoxPad + labelH;
    width -= 2 * kBoxPad;
    height -= 2 * kBoxPad + labelH;
  }
  int gap = gapOf(t);
  if (isRow(t)) {
    int used = 0, growers = 0;
    for (auto &c : t.children) {
      used += c->width;
      if (!fixedWidth(*c)) ++growers;
    }
    used += gap * (int(t.children.size()) - 1);
    int spare = std::max(0, width - used);
    // A row whose children are all fixed sits as its own alignment says;
    // the children then keep together.
    int cx = left;
    if (!growers) {
      std::wstring a = t.str(L"alignment", L"centered");
      cx += a == L"right" ? spare : a == L"left" ? 0 : spare / 2;
    }
    for (auto &c : t.children) {
      int cw = c->width;
      if (growers && !fixedWidth(*c)) {
        int share = spare / growers;
        cw += share;
        spare -= share;
        --growers;
      }
      int ch = fixedHeight(*c) ? c->height : height;
      place(*c, cx, fixedHeight(*c) ? align(*c, top, height, ch, true) : top, cw, ch);
      cx += cw + gap;
    }
  } else {
    int cy = top;
    for (auto &c : t.children) {
      int cw = fixedWidth(*c) ? c->width : width;
      place(*c, fixedWidth(*c) ? align(*c, left, width, cw, false) : left, cy, cw, c->height);
      cy += c->height + gap;
    }
  }
}

}  // namespace

int textWidth(const std::wstring &text) { return int(text.size()) * kCharWidth; }

std::wstring shownLabel(const std::wstring &label) {
  std::wstring out;
  for (size_t i = 0; i < label.size(); ++i) {
    if (label[i] == L'&') {
      if (i + 1 < label.size() && label[i + 1] == L'&') out += L'&', ++i;
      continue;
    }
    out += label[i];
  }
  return out;
}

void layout(Tile &root) {
  measure(root);
  place(root, 0, 0, root.width, root.height);
}

}  // namespace vantry::host::dcl
