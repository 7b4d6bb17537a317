// Pictures of a drawing: the model space drawn to a PNG in plan and in a
// shaded isometric view, so that a person can look at what a script built.
//
// The drawing is reduced to primitives in world coordinates: curves become
// polylines (sampled along their parameter), 3D faces become polygons, texts
// (MTEXT, and TEXT and ATTRIB kept as read from a file) become lines of text
// placed with the MText layout's font metrics, hatches become filled areas
// with their boundaries, block references are walked through their block,
// and every other entity (the duct solids) is exploded until only those
// remain. Each view projects the primitives and paints them
// through a depth buffer, faces shaded by the angle between their normal and
// the light, then the faces' visible edges and the curves as lines.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/arx.h"

namespace vantry::render {

struct Rgb {
  double r = 0, g = 0, b = 0;
};

// One thing to draw, in world coordinates: a polyline (open or closed), a
// filled face (three or four corners), a line of text, or a filled area
// (a hatch: its boundary loops, filled even-odd, so islands stay open).
struct Primitive {
  enum Kind { Polyline, Face, Text, Fill };
  Kind kind = Polyline;
  std::vector<AcGePoint3d> points;  // Text: where its baseline starts
  bool closed = false;
  Rgb color;
  std::wstring text;   // Text only: one line, format codes taken out
  double height = 0;   // Text only: the height of capitals
  // Text only: the baseline's direction, and the line's length along it as
  // the font's metrics measure it (0: as the picture's font sets it).
  AcGeVector3d direction = AcGeVector3d::kXAxis;
  double width = 0;
  // Text only: up the letters, in the text's plane (square to direction).
  AcGeVector3d up = AcGeVector3d::kYAxis;
  // Fill only: the boundary loops, each closed.
  std::vector<std::vector<AcGePoint3d>> loops;
  // Face only: whether the side from points[i] to the next is drawn as an
  // edge line (a 3D face's visible edges: an exploded solid's feature
  // edges, not the sides inside its triangulated faces). Empty: every side.
  std::vector<bool> edges;
};

// The model space of db as primitives.
std::vector<Primitive> collectModelSpace(AcDbDatabase *db);

enum class View { Plan, Isometric };

struct Options {
  int width = 1600, height = 800;  // the whole picture
  bool plan = true, isometric = true;  // panels side by side, plan first
};

// The picture as 32-bit ARGB pixels, row by row.
struct Picture {
  int width = 0, height = 0;
  std::vector<uint32_t> pixels;
  uint32_t at(int x, int y) const { return pixels[size_t(y) * size_t(width) + size_t(x)]; }
};

// Where a world point lands in a panel of the picture drawn with the same
// primitives and options (for tests and for labelling).
struct Placement {
  double scale = 1, offsetX = 0, offsetY = 0;  // pixel = offset + scale * view coordinate
  int panelX = 0, panelWidth = 0, height = 0;
  View view = View::Plan;
  void toPixel(const AcGePoint3d &p, double &x, double &y) const;
};

Picture draw(const std::vector<Primitive> &primitives, const Options &options,
             std::vector<Placement> *placements = nullptr);

// Draws db's model space to a PNG file; false with *error when it cannot.
bool writePng(AcDbDatabase *db, const std::string &path, const Options &options, std::string *error);

// A DCL dialog's layout drawn as a person would see it (dialog.cpp): the
// dialog `name` of a DCL file in the state its file gives, or a dialog as a
// program left it. False with *error when the file cannot be read, has
// errors or lacks the dialog, or the picture cannot be written.
bool writeDialogPng(const std::wstring &dclFile, const std::wstring &name, const std::string &path,
                    std::string *error);
}  // namespace vantry::render
namespace vantry::host::dcl {
struct Dialog;
}
namespace vantry::render {
bool writeDialogPng(host::dcl::Dialog &dialog, const std::string &path, std::string *error);

}  // namespace vantry::render

struct PersonWindow;  // host/person.h
namespace vantry::render {
// A module's own window (its grid dialogs, the colour chooser, the licence)
// drawn as it opens (window.cpp). False with *error when the picture cannot
// be written.
bool writeWindowPng(const PersonWindow &window, const std::string &path, std::string *error);
}  // namespace vantry::render
