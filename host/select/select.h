// The insides of the host's selection: selection sets, what an entity looks
// like in plan (its shape), filters, the spatial index over model space and
// the queries that the selection modes and the pick share. Only host/select/*.cpp
// include this; the module sees host/aced_select.h.
//
// Geometry is tested in the XY plane of the world (the headless view is a
// plan view): an entity's shape is its outline projected on XY, as line
// segments and circular arcs, plus, for entities that cover an area when
// picked (MText boxes, block references and other entities known only by
// their extents), that area as a region.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "db/db.h"

namespace vantry::host::select {

// --- Plan geometry ---------------------------------------------------------------------

struct P2 {
  double x = 0, y = 0;
};

struct Box {
  double x0 = 1, y0 = 1, x1 = 0, y1 = 0;  // empty: x0 > x1
  bool empty() const { return x0 > x1; }
  void add(P2 p) {
    if (empty()) {
      x0 = x1 = p.x, y0 = y1 = p.y;
      return;
    }
    x0 = p.x < x0 ? p.x : x0, x1 = p.x > x1 ? p.x : x1;
    y0 = p.y < y0 ? p.y : y0, y1 = p.y > y1 ? p.y : y1;
  }
  void add(const Box &b) {
    if (b.empty()) return;
    add(P2{b.x0, b.y0});
    add(P2{b.x1, b.y1});
  }
  bool intersects(const Box &b) const { return !(b.x0 > x1 || b.x1 < x0 || b.y0 > y1 || b.y1 < y0); }
  bool contains(const Box &b) const { return b.x0 >= x0 && b.x1 <= x1 && b.y0 >= y0 && b.y1 <= y1; }
  bool contains(P2 p) const { return p.x >= x0 && p.x <= x1 && p.y >= y0 && p.y <= y1; }
};

// A line segment (arc false) from a to b, or a circular arc about c of
// radius r from angle a0 sweeping `sweep` radians (counter-clockwise when
// positive); a and b are then its end points.
struct Piece {
  bool arc = false;
  P2 a, b;
  P2 c;
  double r = 0, a0 = 0, sweep = 0;
};

struct Shape {
  std::vector<Piece> pieces;
  // Closed polygons whose inside counts as part of the entity.
  std::vector<std::vector<P2>> regions;
  Box box() const;
  bool empty() const { return pieces.empty() && regions.empty(); }
};

// The plan shape of an entity (see ss_shape.cpp for the rules per class).
Shape shapeOf(const AcDbEntity &ent);

// A selection area: an axis-aligned rectangle, or a polygon (closed by its
// last edge back to the first point).
struct Area {
  bool polygon = false;
  Box rect;
  std::vector<P2> points;
  static Area rectangle(P2 a, P2 b);
  static Area poly(std::vector<P2> pts);
  Box box() const;
};

// Window: the whole shape lies inside the area. Crossing: some part of the
// shape lies inside the area or crosses its boundary (a region counts as
// solid; a curve enclosing the area without touching it is not crossed).
bool inside(const Shape &s, const Area &area);
bool crosses(const Shape &s, const Area &area);
// The distance in plan from p to the nearest part of the shape (0 inside a
// region).
double distanceTo(const Shape &s, P2 p);

// --- Filters ------------------------------------------------------------------------------

// A compiled filter; see ss_filter.cpp for the grammar. An empty filter accepts
// everything.
class Filter {
 public:
  // Reads a filter in either form (group-code nodes, or the list form a LISP
  // filter list takes as an external function's argument). False when it is
  // malformed: unbalanced or misplaced -4 groupings, a relational operator
  // with nothing to apply to, an element that is not a (code . value) pair.
  bool parse(const resbuf *rb);
  bool empty() const { return nodes_.empty(); }
  bool matches(const AcDbEntity &ent) const;

  struct Node;
  ~Filter();
  Filter() = default;
  Filter(const Filter &) = delete;
  Filter &operator=(const Filter &) = delete;

 private:
  std::vector<Node *> nodes_;  // owned; the top level is an implicit AND
};

// Writes an entity's name into a caller's ads_name (null ids give 0 0).
inline void nameOf(AcDbObjectId id, int64_t *out) {
  ads_name n;
  acdbGetAdsName(n, id);
  out[0] = n[0];
  out[1] = n[1];
}

// --- Selection sets -------------------------------------------------------------------------

// A new set holding ids (in that order, duplicates dropped); its name goes to ss.
void newSet(const std::vector<AcDbObjectId> &ids, ads_name ss);
// Whether ss names a live set; its members that still name an entity of a
// live database go to out.
bool setMembers(const ads_name ss, std::vector<AcDbObjectId> &out);
// The previous selection ("P"): what the last successful selection chose,
// less what has gone with its drawing since.
void setPrevious(const std::vector<AcDbObjectId> &ids);
std::vector<AcDbObjectId> previous();
// Frees every set and forgets the previous selection (a fresh session).
void resetSelection();
// The number of live sets (for tests and leak checks).
int liveSets();

// --- What may be selected, and the queries -----------------------------------------------

enum class Reach {
  Everything,  // "X": every entity of every layout, frozen and off layers too
  All,         // "ALL": the current space, all but frozen layers
  Visible,     // picks, windows, "L": the current space, layers on and thawed
};

// Whether an entity may be selected with that reach (layer state and space).
bool reachable(const AcDbEntity &ent, Reach reach);
// The ids of the current space's entities (model space: paper space is never
// current in the headless host), in database order.
const std::vector<AcDbObjectId> &currentSpace(AcDbDatabase *db);

// Entities of the current space whose shape is inside (window) or crosses
// (crossing) the area and that pass the filter, newest first. Uses the
// spatial index of the database.
std::vector<AcDbObjectId> selectArea(AcDbDatabase *db, const Area &area, bool crossing, const Filter &filter,
                                     Reach reach = Reach::Visible);
// The same by testing every entity of the current space (the index's
// reference; benchmarks compare the two).
std::vector<AcDbObjectId> selectAreaByScan(AcDbDatabase *db, const Area &area, bool crossing,
                                           const Filter &filter, Reach reach = Reach::Visible);
// Every entity reachable that passes the filter, newest first.
std::vector<AcDbObjectId> selectAll(AcDbDatabase *db, const Filter &filter, Reach reach);
// The last entity reachable (visible) in the current space, or null.
AcDbObjectId lastEntity(AcDbDatabase *db);

// The pick: the half-size in drawing units of the pick box (PICKBOX pixels
// times the size of a pixel: VIEWSIZE drawing units over the height of
// SCREENSIZE), and the entity whose shape comes nearest the point within
// that box (the newest on a tie), or null.
double pickHalfSize();
AcDbObjectId pickAt(AcDbDatabase *db, P2 p, const Filter *filter = nullptr);

// --- The person's selection (ss_prompt.cpp) ------------------------------------------------

// The "" mode of acedSSGet: answers from the input queue until Enter (see
// ss_prompt.cpp for the answers understood). RTNORM with the ids chosen
// (possibly none), RTCAN on a cancel, RTKWORD when a keyword ended it.
struct PersonSelection {
  std::wstring addPrompt = L"Select objects: ";
  std::wstring removePrompt = L"Remove objects: ";
  std::wstring keywords;  // initget-style keyword list; empty for none
  bool single = false;    // end after the first answer that selects something
  int run(AcDbDatabase *db, const Filter &filter, std::vector<AcDbObjectId> &out);
};

// --- The spatial index (ss_index.cpp) -----------------------------------------------------------

// The ids of the current-space entities whose extents meet the box, in no
// particular order; entities without extents are never answered.
void indexQuery(AcDbDatabase *db, const Box &box, std::vector<AcDbObjectId> &out);
// Drops every index (tests; a fresh session).
void indexReset();
// How many times an index was built in full (tests of the update rules).
int indexBuilds();

}  // namespace vantry::host::select
