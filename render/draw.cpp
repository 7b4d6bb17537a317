// Painting primitives with cairo: one panel per view, fitted to the panel,
// back to front: filled areas, faces, lines, then texts over them.
#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "common/files.h"
#include "common/text.h"
#include "render.h"

namespace vantry::render {
namespace {

constexpr Rgb kBackground{1, 1, 1};
constexpr double kMargin = 0.06;  // of the panel, on every side
constexpr double kTitleHeight = 28;

struct Axes {
  AcGeVector3d right, up, toViewer;
};

Axes axesOf(View view) {
  if (view == View::Plan) return {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  // The south-east isometric view: looking from (1, -1, 1) toward the origin.
  return {AcGeVector3d(1, 1, 0).normal(), AcGeVector3d(-1, 1, 2).normal(), AcGeVector3d(1, -1, 1).normal()};
}

double dot(const AcGeVector3d &a, const AcGePoint3d &p) { return a.x * p.x + a.y * p.y + a.z * p.z; }

// Newell's normal of a polygon: right for any planar polygon, and a fair
// average for a slightly warped quadrilateral.
AcGeVector3d normalOf(const std::vector<AcGePoint3d> &pts) {
  AcGeVector3d n(0, 0, 0);
  for (size_t i = 0; i < pts.size(); ++i) {
    const AcGePoint3d &a = pts[i], &b = pts[(i + 1) % pts.size()];
    n.x += (a.y - b.y) * (a.z + b.z);
    n.y += (a.z - b.z) * (a.x + b.x);
    n.z += (a.x - b.x) * (a.y + b.y);
  }
  double len = n.length();
  return len > 0 ? n / len : AcGeVector3d(0, 0, 1);
}

// The picture being painted: colours and, per pixel, the depth of what is
// shown there (larger is nearer the viewer). Faces and lines are drawn
// through the depth test, so a nearer surface hides a farther one whatever
// order they come in.
struct Canvas {
  int width, height;
  std::vector<uint32_t> color;
  std::vector<float> depth;
  Canvas(int w, int h)
      : width(w), height(h), color(size_t(w) * size_t(h), pack(kBackground)),
        depth(size_t(w) * size_t(h), -std::numeric_limits<float>::infinity()) {}

  static uint32_t pack(const Rgb &c) {
    auto byte = [](double v) { return uint32_t(std::lround(std::clamp(v, 0.0, 1.0) * 255)); };
    return 0xff000000u | byte(c.r) << 16 | byte(c.g) << 8 | byte(c.b);
  }
  void plot(int x, int y, double d, uint32_t c) {
    if (x < 0 || y < 0 || x >= width || y >= height) return;
    size_t i = size_t(y) * size_t(width) + size_t(x);
    if (d < depth[i]) return;
    depth[i] = float(d);
    color[i] = c;
  }
};

// Colour 7 is drawn black on the white ground, which no shading can
// lighten: its faces take a light steel grey instead, as a shaded view shows
// them (its lines stay black).
Rgb faceBase(const Rgb &color) {
  if (std::max({color.r, color.g, color.b}) < 0.2) return {0.72, 0.75, 0.80};
  return color;
}
// A face's edges are drawn in its own colour, darkened by this.
constexpr double kEdgeShade = 0.4;

// A corner in pixels with its depth.
struct Projected {
  double x, y, d;
};

class Painter {
 public:
  Painter(Canvas &canvas, const std::vector<Primitive> &prims, View view, int x0, int width, int height)
      : canvas_(canvas), prims_(prims), axes_(axesOf(view)) {
    placement_.view = view;
    placement_.panelX = x0;
    placement_.panelWidth = width;
    placement_.height = height;
    fit(x0, width, height);
  }

  const Placement &placement() const { return placement_; }

  // Faces first, then lines (the faces' visible edges and the curves), which
  // lose to a face only when clearly behind it (an edge lying on a face stays
  // visible).
  void paint() {
    double lo = std::numeric_limits<double>::infinity(), hi = -lo;
    for (const Primitive &p : prims_)
      for (const AcGePoint3d &v : p.points) lo = std::min(lo, depthOf(v)), hi = std::max(hi, depthOf(v));
    double bias = hi > lo ? (hi - lo) * 2e-3 : 1e-9;
    for (const Primitive &p : prims_)
      if (p.kind == Primitive::Fill) paintFill(p, bias);
    for (const Primitive &p : prims_)
      if (p.kind == Primitive::Face && p.points.size() >= 3) paintFace(p);
    for (const Primitive &p : prims_) {
      if (p.kind == Primitive::Face) {
        Rgb edge = faceBase(p.color);
        edge = {edge.r * kEdgeShade, edge.g * kEdgeShade, edge.b * kEdgeShade};
        for (size_t i = 0; i < p.points.size(); ++i)
          if (p.edges.empty() || (i < p.edges.size() && p.edges[i]))
            paintLine(p.points[i], p.points[(i + 1) % p.points.size()], bias, edge);
      }
      if (p.kind != Primitive::Polyline) continue;
      size_t n = p.points.size() + (p.closed ? 1 : 0);
      for (size_t i = 1; i < n; ++i) paintLine(p.points[i - 1], p.points[i % p.points.size()], bias, p.color);
    }
  }

  // Texts and the title, over the painted picture.
  void label(cairo_t *cr, const char *title) {
    cairo_save(cr);
    cairo_rectangle(cr, placement_.panelX, 0, placement_.panelWidth, placement_.height);
    cairo_clip(cr);
    for (const Primitive &p : prims_)
      if (p.kind == Primitive::Text && !p.points.empty()) paintText(cr, p);
    cairo_set_source_rgb(cr, 0.2, 0.2, 0.2);
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    cairo_set_font_size(cr, 16);
    cairo_move_to(cr, placement_.panelX + 12, 22);
    cairo_show_text(cr, title);
    cairo_restore(cr);
  }

 private:
  double depthOf(const AcGePoint3d &p) const { return dot(axes_.toViewer, p); }

  void fit(int x0, int width, int height) {
    double lo[2] = {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity()};
    double hi[2] = {-lo[0], -lo[1]};
    for (const Primitive &p : prims_)
      for (const AcGePoint3d &v : p.points) {
        double c[2] = {dot(axes_.right, v), dot(axes_.up, v)};
        for (int k = 0; k < 2; ++k) lo[k] = std::min(lo[k], c[k]), hi[k] = std::max(hi[k], c[k]);
      }
    if (!(lo[0] <= hi[0])) lo[0] = lo[1] = 0, hi[0] = hi[1] = 1;  // nothing to draw
    double w = std::max(hi[0] - lo[0], 1e-9), h = std::max(hi[1] - lo[1], 1e-9);
    double usableW = width * (1 - 2 * kMargin), usableH = (height - kTitleHeight) * (1 - 2 * kMargin);
    double scale = std::min(usableW / w, usableH / h);
    placement_.scale = scale;
    // Centred: the view's x grows to the right, its y upward (pixels grow down).
    placement_.offsetX = x0 + width / 2.0 - scale * (lo[0] + hi[0]) / 2;
    placement_.offsetY = kTitleHeight + (height - kTitleHeight) / 2.0 + scale * (lo[1] + hi[1]) / 2;
  }

  Projected project(const AcGePoint3d &p) const {
    return {placement_.offsetX + placement_.scale * dot(axes_.right, p),
            placement_.offsetY - placement_.scale * dot(axes_.up, p), depthOf(p)};
  }

  void paintFace(const Primitive &p) {
    // Shaded by the light's angle, both sides alike (a face has no inside
    // for a picture); the light comes from over the viewer's left shoulder.
    AcGeVector3d light = (axes_.toViewer * 1.0 + axes_.up * 0.6 - axes_.right * 0.4).normal();
    double k = 0.35 + 0.65 * std::fabs(normalOf(p.points).dotProduct(light));
    Rgb base = faceBase(p.color);
    uint32_t c = Canvas::pack({base.r * k, base.g * k, base.b * k});
    Projected a = project(p.points[0]);
    for (size_t i = 2; i < p.points.size(); ++i) fillTriangle(a, project(p.points[i - 1]), project(p.points[i]), c);
  }

  // A filled area: the pixels inside its loops by the even-odd rule (so an
  // island inside a loop stays open), row by row, at the loops' mean depth
  // less the lines' bias, so that the boundary and what lies on the area
  // show over it.
  void paintFill(const Primitive &p, double bias) {
    std::vector<std::pair<Projected, Projected>> edges;
    double depth = 0;
    size_t corners = 0;
    double y0 = std::numeric_limits<double>::infinity(), y1 = -y0;
    for (const auto &loop : p.loops) {
      for (size_t i = 0; i < loop.size(); ++i) {
        Projected a = project(loop[i]), b = project(loop[(i + 1) % loop.size()]);
        if (!std::isfinite(a.x + a.y + b.x + b.y)) return;
        edges.emplace_back(a, b);
        depth += a.d;
        ++corners;
        y0 = std::min(y0, a.y), y1 = std::max(y1, a.y);
      }
    }
    if (!corners) return;
    depth = depth / double(corners) - bias;
    uint32_t c = Canvas::pack(p.color);
    int first = std::max(0, int(std::floor(y0))), last = std::min(placement_.height - 1, int(std::ceil(y1)));
    std::vector<double> xs;
    for (int y = first; y <= last; ++y) {
      double py = y + 0.5;
      xs.clear();
      for (const auto &[a, b] : edges)
        if ((a.y <= py) != (b.y <= py)) xs.push_back(a.x + (py - a.y) * (b.x - a.x) / (b.y - a.y));
      std::sort(xs.begin(), xs.end());
      for (size_t k = 0; k + 1 < xs.size(); k += 2) {
        int from = std::max(placement_.panelX, int(std::ceil(xs[k] - 0.5)));
        int to = std::min(placement_.panelX + placement_.panelWidth - 1, int(std::floor(xs[k + 1] - 0.5)));
        for (int x = from; x <= to; ++x) canvas_.plot(x, y, depth, c);
      }
    }
  }

  // Every pixel whose centre lies in the triangle (edges included), with the
  // depth interpolated across it.
  void fillTriangle(const Projected &a, const Projected &b, const Projected &c, uint32_t color) {
    double area = (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
    if (std::fabs(area) < 1e-12) return;  // seen edge-on
    int x0 = std::max(placement_.panelX, int(std::floor(std::min({a.x, b.x, c.x}))));
    int x1 = std::min(placement_.panelX + placement_.panelWidth - 1, int(std::ceil(std::max({a.x, b.x, c.x}))));
    int y0 = std::max(0, int(std::floor(std::min({a.y, b.y, c.y}))));
    int y1 = std::min(placement_.height - 1, int(std::ceil(std::max({a.y, b.y, c.y}))));
    const double eps = -1e-9 * std::fabs(area);
    for (int y = y0; y <= y1; ++y) {
      double py = y + 0.5;
      for (int x = x0; x <= x1; ++x) {
        double px = x + 0.5;
        double wa = ((b.x - px) * (c.y - py) - (b.y - py) * (c.x - px)) / area;
        double wb = ((c.x - px) * (a.y - py) - (c.y - py) * (a.x - px)) / area;
        double wc = 1 - wa - wb;
        if (wa * std::fabs(area) < eps || wb * std::fabs(area) < eps || wc * std::fabs(area) < eps) continue;
        canvas_.plot(x, y, wa * a.d + wb * b.d + wc * c.d, color);
      }
    }
  }

  // A line about 1.5 pixels wide, stepped a pixel at a time.
  void paintLine(const AcGePoint3d &from, const AcGePoint3d &to, double bias, const Rgb &rgb) {
    Projected a = project(from), b = project(to);
    double dx = b.x - a.x, dy = b.y - a.y;
    int steps = std::max(1, int(std::ceil(std::max(std::fabs(dx), std::fabs(dy)))));
    if (steps > 100000) return;  // far outside any sensible picture
    uint32_t c = Canvas::pack(rgb);
    bool steep = std::fabs(dy) > std::fabs(dx);
    for (int i = 0; i <= steps; ++i) {
      double t = double(i) / steps;
      double x = a.x + dx * t, y = a.y + dy * t, d = a.d + (b.d - a.d) * t + bias;
      int ix = int(std::floor(x)), iy = int(std::floor(y));
      if (ix < placement_.panelX || ix >= placement_.panelX + placement_.panelWidth) continue;
      canvas_.plot(ix, iy, d, c);
      if (steep)
        canvas_.plot(ix + (x - ix >= 0.5 ? 1 : -1), iy, d, c);
      else
        canvas_.plot(ix, iy + (y - iy >= 0.5 ? 1 : -1), d, c);
    }
  }

  // A line of text in its own plane as the view sees it: cairo's user
  // space becomes the text's plane (one unit a drawing unit, x along the
  // baseline, y down the letters), so a text lying in plan is slanted in
  // the isometric view; one seen edge-on, or nearly, is left out. Its
  // capitals are as high as the text's height and, when the layout measured
  // it, the line is stretched to the length the font's metrics give (the
  // picture's font is not the drawing's).
  void paintText(cairo_t *cr, const Primitive &p) {
    const AcGePoint3d &base = p.points[0];
    Projected at = project(base), ahead = project(base + p.direction), above = project(base + p.up);
    double size = p.height * placement_.scale;
    if (size < 4 || !std::isfinite(size) || size > 4 * placement_.height) return;  // unreadable or absurd
    double ex[2] = {ahead.x - at.x, ahead.y - at.y}, ey[2] = {above.x - at.x, above.y - at.y};
    // Face-on, both are as long as the scale and square: the area they
    // span is the scale squared.
    double area = std::fabs(ex[0] * ey[1] - ex[1] * ey[0]), faceOn = placement_.scale * placement_.scale;
    // A cairo context that met a non-finite number or a flat matrix stays
    // in error: nothing after it would be drawn.
    if (!std::isfinite(at.x + at.y + ex[0] + ex[1] + ey[0] + ey[1] + p.width) || !(area > 0.1 * faceOn)) return;
    std::string utf8 = text::toUtf8(p.text);
    cairo_save(cr);
    cairo_set_source_rgb(cr, p.color.r, p.color.g, p.color.b);
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_matrix_t plane;
    cairo_matrix_init(&plane, ex[0], ex[1], -ey[0], -ey[1], at.x, at.y);
    cairo_transform(cr, &plane);
    // Capitals of a sans-serif face are about 0.72 of its size.
    cairo_set_font_size(cr, p.height / 0.72);
    cairo_text_extents_t ext;
    cairo_text_extents(cr, utf8.c_str(), &ext);
    if (p.width > 0 && ext.x_advance > 0) cairo_scale(cr, p.width / ext.x_advance, 1);
    cairo_move_to(cr, 0, 0);
    cairo_show_text(cr, utf8.c_str());
    cairo_restore(cr);
  }

  Canvas &canvas_;
  const std::vector<Primitive> &prims_;
  Axes axes_;
  Placement placement_;
};

cairo_surface_t *paint(const std::vector<Primitive> &prims, const Options &options,
                       std::vector<Placement> *placements) {
  Canvas canvas(options.width, options.height);
  std::vector<View> views;
  if (options.plan) views.push_back(View::Plan);
  if (options.isometric) views.push_back(View::Isometric);
  int panels = int(views.size());
  std::vector<Painter> painters;
  painters.reserve(views.size());
  for (int i = 0; i < panels; ++i) {
    int x0 = options.width * i / panels, x1 = options.width * (i + 1) / panels;
    painters.emplace_back(canvas, prims, views[size_t(i)], x0, x1 - x0, options.height);
    painters.back().paint();
    if (placements) placements->push_back(painters.back().placement());
  }
  cairo_surface_t *surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, options.width, options.height);
  cairo_surface_flush(surface);
  unsigned char *data = cairo_image_surface_get_data(surface);
  int stride = cairo_image_surface_get_stride(surface);
  for (int y = 0; y < options.height; ++y)
    std::copy_n(canvas.color.begin() + ptrdiff_t(size_t(y) * size_t(options.width)), options.width,
                reinterpret_cast<uint32_t *>(data + size_t(y) * size_t(stride)));
  cairo_surface_mark_dirty(surface);
  cairo_t *cr = cairo_create(surface);
  for (int i = 0; i < panels; ++i) {
    painters[size_t(i)].label(cr, views[size_t(i)] == View::Plan ? "Plan" : "Isometric");
    if (i > 0) {  // a thin rule between panels
      int x0 = options.width * i / panels;
      cairo_set_source_rgb(cr, 0.8, 0.8, 0.8);
      cairo_set_line_width(cr, 1);
      cairo_move_to(cr, x0 + 0.5, 0);
      cairo_line_to(cr, x0 + 0.5, options.height);
      cairo_stroke(cr);
    }
  }
  cairo_destroy(cr);
  cairo_surface_flush(surface);
  return surface;
}

}  // namespace

void Placement::toPixel(const AcGePoint3d &p, double &x, double &y) const {
  Axes axes = axesOf(view);
  x = offsetX + scale * dot(axes.right, p);
  y = offsetY - scale * dot(axes.up, p);
}

Picture draw(const std::vector<Primitive> &primitives, const Options &options,
             std::vector<Placement> *placements) {
  Picture picture;
  if (options.width <= 0 || options.height <= 0 || (!options.plan && !options.isometric)) return picture;
  cairo_surface_t *surface = paint(primitives, options, placements);
  picture.width = options.width;
  picture.height = options.height;
  picture.pixels.resize(size_t(options.width) * size_t(options.height));
  const unsigned char *data = cairo_image_surface_get_data(surface);
  int stride = cairo_image_surface_get_stride(surface);
  for (int y = 0; y < options.height; ++y)
    std::copy_n(reinterpret_cast<const uint32_t *>(data + size_t(y) * size_t(stride)), options.width,
                picture.pixels.begin() + ptrdiff_t(size_t(y) * size_t(options.width)));
  cairo_surface_destroy(surface);
  return picture;
}

bool writePng(AcDbDatabase *db, const std::string &path, const Options &options, std::string *error) {
  if (options.width <= 0 || options.height <= 0 || options.width > 20000 || options.height > 20000) {
    if (error) *error = "the picture size must be between 1 and 20000 pixels each way";
    return false;
  }
  std::vector<Primitive> prims = collectModelSpace(db);
  cairo_surface_t *surface = paint(prims, options, nullptr);
  // Written beside the target and renamed over it when complete, so a
  // failed write leaves an older picture as it was.
  cairo_status_t status = CAIRO_STATUS_SUCCESS;
  bool written = files::replaceFile(
      path,
      [&](const std::string &temp) {
        status = cairo_surface_write_to_png(surface, temp.c_str());
        return status == CAIRO_STATUS_SUCCESS;
      },
      error);
  cairo_surface_destroy(surface);
  if (status != CAIRO_STATUS_SUCCESS && error)
    *error = "cannot write " + path + ": " + cairo_status_to_string(status);
  if (!written) return false;
  return true;
}

}  // namespace vantry::render
