// The duct solid modeller: the geometry beneath the custom entity ol_hvacSolid.
//
// A SolidBodies object holds the bodies of one duct solid (a straight piece, a transition, an elbow,
// a wye, a hanger, ...) and offers one method per fitting operation of ol_hvacSolid, with the same
// parameters in the same order, plus what the entity needs to draw, select, move, explode, file and
// export itself. The entity (and through it the module's fitting functions) is the only caller; no
// Open CASCADE type crosses this header, so nothing outside solid/ sees the modelling library.
//
// Coordinates. Every point handed to an operation is a world (drawing) point. The object keeps its
// bodies relative to a local origin, the first point it was ever given, so that booleans work near
// (0,0,0) whatever the drawing coordinates are; every result (extents, mesh, faces, STEP) is given back
// in world coordinates.
//
// Sections. A section is centred on its point and lies in the plane of its frame's y and z: a
// rectangle of `width` along y and `depth` along z, or (rectangular flag false) a circle of diameter
// `width` (`depth` is then ignored). A frame's x runs along the duct in the direction of flow.
//
// The option integer of the add operations is the body's kind tag: it is kept with the body, filed
// with it and reported with every exploded face, so the entity can draw kinds of bodies apart (the
// module passes its drawing option through unchanged).
//
// Every operation returns true when it did its work and false otherwise, with lastError() saying
// why; a failed operation leaves the bodies as they were. Nothing throws.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace vantry::solid {

struct Pt {
  double x = 0, y = 0, z = 0;
};
struct Vec {
  double x = 0, y = 0, z = 0;
};
// Three unit vectors: x along the duct, y across it horizontally, z = x cross y.
struct Frame {
  Vec x, y, z;
};

// One face of an exploded solid: a flat face with three or four corners (count 3 or 4, corners in
// order round the face), or one triangle of a curved or many-cornered face (count 3).
struct FacePiece {
  Pt corners[4];
  int count = 0;
  int kind = 0;  // the option tag of the body the face came from
  // Whether the side from corner i to the next lies on one of the solid's feature edges (where two
  // faces meet at a crease, not smoothly, and not a closed face's seam). The sides inside a face's
  // triangles are no edges; a picture or another CAD program draws the feature edges only.
  bool edge[4] = {false, false, false, false};
};

// A triangle mesh of all bodies: vertex positions and index triples, outward-facing order.
struct Mesh {
  std::vector<Pt> vertices;
  std::vector<int> triangles;  // three indices per triangle
};

// The time limit of one modelling step (a boolean, a loft, a mesh), in seconds; 20 unless set. A
// step that runs past it stops and its operation fails ("the modeller ran past its time limit").
void setStepTimeLimit(double seconds);

class SolidBodies {
 public:
  SolidBodies();
  ~SolidBodies();
  SolidBodies(const SolidBodies &other);
  SolidBodies &operator=(const SolidBodies &other);
  SolidBodies(SolidBodies &&) noexcept;
  SolidBodies &operator=(SolidBodies &&) noexcept;

  // --- the fitting operations ---

  // A loft from the start section to the end section (ruled: flat sides between rectangles, and a
  // rectangle-to-round end split at the rectangle's corner angles so each side gets one face).
  // Fails on sizes <= 0, coincident points, or a section whose plane contains the other's centre.
  bool addTransition(Pt start, bool startRect, double startWidth, double startDepth, Pt end, bool endRect,
                     double endWidth, double endDepth, const Frame &startFrame, const Frame &endFrame,
                     int option);
  // The same loft cut away from every body it meets (a band hanger's opening). True when at least
  // one body was cut.
  bool subtractTransition(Pt start, bool startRect, double startWidth, double startDepth, Pt end,
                          bool endRect, double endWidth, double endDepth, const Frame &startFrame,
                          const Frame &endFrame, int option);
  // A plate: the closed polygon through the points (at least three, all in one plane) thickened by
  // `thickness` along the polygon's normal (right-hand order of the points; a negative thickness
  // goes the other way).
  bool addSkin(const std::vector<Pt> &points, double thickness);

  // Square (mitred) elbow. The legs' centre lines are the line through `start` along frameA.x and
  // the line through `end` along frameB.x; they must meet (within `tolerance`) at a corner ahead of
  // `start` and behind `end`, at a real bend (not straight on, not doubling back). Each leg keeps its
  // own section (widthA x depthA in frame A, widthB x depthB in frame B); the legs meet on the
  // mitre plane through the corner that halves the bend. The prep checks that the two sections fit
  // across the bend: their sizes measured along the bend's normal (the axis the elbow turns about)
  // must agree within `tolerance`, and, when `sameThroat` is true, their sizes in the bend plane as
  // well. It adds nothing; it gives the corner and, on the mitre in the bend's centre plane, the
  // heel (outer) and throat (inner) points. A caller tries the size pairings it has until one fits.
  bool addSquareElbowPrep(Pt start, double widthA, double depthA, Pt end, double widthB, double depthB,
                          const Frame &frameA, const Frame &frameB, bool rect, Pt &heel, Pt &throat,
                          Pt &corner, bool sameThroat, double tolerance);
  // Builds the elbow the prep accepted: both mitred legs, joined into one body. The mitre plane is
  // the plane through heel, throat and the bend normal, so the points the prep gave are used as
  // they are.
  bool addSquareElbow(Pt start, double widthA, double depthA, Pt end, double widthB, double depthB,
                      const Frame &frameA, const Frame &frameB, bool rect, Pt heel, Pt throat, Pt corner,
                      int option);
  // Radius elbow: the section swept round an arc tangent to both legs' centre lines (which must
  // meet, as for the square elbow), built as a revolution about the bend axis. The centre-line radius
  // is radiusRatio x the section's size in the bend plane, or, with `throatRatio`, the throat radius
  // is radiusRatio x that size and the centre line lies half the size further out; the throat radius
  // must stay positive. extraA and extraB are the lining and insulation thicknesses included in
  // width and depth; the bare duct (width - 2(extraA + extraB) by depth - 2(extraA + extraB)) must
  // exist. The elbow has one size throughout: endWidth x endDepth, measured in frame B, must be the
  // start section turned through the bend. With `legs`, straight pieces fill from `start` to the
  // arc and from the arc to `end` (the points must lie at or beyond the arc's tangent points); the
  // whole elbow is then one body. Without, only the arc is built.
  bool addRadiusElbow(Pt start, double width, double depth, double extraA, double extraB, Pt end,
                      double endWidth, double endDepth, const Frame &frameA, const Frame &frameB, bool rect,
                      double radiusRatio, bool throatRatio, int option, bool legs);
  // Flat cable-tray elbow: a mitred elbow of one rectangular section whose heel stays square and
  // whose throat is rounded with `throatRadius` (0 leaves the throat square too).
  bool addCableTraySquareRadiusElbow(Pt start, double width, double depth, Pt end, const Frame &frameA,
                                     const Frame &frameB, double throatRadius, int option);

  // Wye: port 1 is the trunk (flow along frame1.x towards the junction), ports 2 and 3 the branches
  // (flow along their frames' x away from it). The prep finds the junction, the point nearest the
  // three centre lines (each must pass within `tolerance` of it), and gives for each port the foot
  // of the junction on its centre line (legStart) and its collar point (collar): the point on the
  // centre line beyond which a branch runs at its own size, far enough out that the two branches
  // have parted (the trunk's collar is its foot). A port nearer the junction than its collar fails,
  // unless `shortLegs`, in which case the collar is the port itself. Branches must leave forwards
  // and not along one line. Nothing is added.
  bool addWyePrep(Pt p1, double width1, double depth1, Pt p2, double width2, double depth2, Pt p3,
                  double width3, double depth3, const Frame &frame1, const Frame &frame2, const Frame &frame3,
                  bool rect, Pt &legStart1, Pt &legStart2, Pt &legStart3, Pt &collar1, Pt &collar2,
                  Pt &collar3, bool shortLegs, double tolerance);
  // Builds the wye as one body: the trunk straight from p1 to its leg start; each branch a
  // transition from the trunk's section at its leg start to its own section at its collar, then
  // straight to its port; and at the junction the trunk's section turned about each bend axis, which
  // fills the heel between trunk and branch with a rounded joint.
  bool addWye(Pt p1, double width1, double depth1, Pt p2, double width2, double depth2, Pt p3, double width3,
              double depth3, Pt junction, const Frame &frame1, const Frame &frame2, const Frame &frame3,
              bool rect, Pt legStart1, Pt legStart2, Pt legStart3, Pt collar1, Pt collar2, Pt collar3,
              int option);

  // Cuts the last body added by the plane through a, b and c, keeping the part on keep's side (a
  // takeoff's stub trimmed to the duct wall it sits on). Fails when the plane is degenerate, keep
  // lies on it, or nothing would remain.
  bool sliceLast(Pt a, Pt b, Pt c, Pt keep);
  // Removes every body.
  void clearBodies();
  // Fuses all bodies of this and of `other` (which may lie anywhere in the same world coordinates)
  // into one body here; `other` is left as it was. False (and nothing changed) when either holds no
  // body or the fuse fails.
  bool doUnion(const SolidBodies &other);

  // --- what the entity needs ---

  int bodyCount() const;
  bool empty() const { return bodyCount() == 0; }
  // Sum of the bodies' volumes (cubic drawing units).
  double volume() const;
  // True when every body passes the modelling library's full topological and geometric check and
  // encloses a positive volume; false for no body.
  bool valid() const;
  // Bounding box of all bodies, exact to the modelling tolerance (1e-7); false when there is none.
  bool extents(Pt &min, Pt &max) const;
  // Applies a 4x4 matrix (row-major, m[row][col], points as columns) to every body. A rigid motion
  // or uniform scale keeps the exact geometry; any other affine matrix turns the surfaces into
  // B-splines. A singular or projective matrix fails.
  bool transformBy(const double m[4][4]);
  // Triangles of every face, within `deflection` drawing units of the true surface (<= 0: a
  // deflection of 1/500 of the extents' diagonal, and at most 8 degrees of turn a triangle).
  Mesh mesh(double deflection = 0) const;
  // Every face of every body, as the entity's explode gives them: a flat face with at most four
  // corners and straight edges as one piece, any other face as its triangles (curved faces within
  // 1/500 of the body's size and 8 degrees of turn a triangle, so a bend looks round), each side
  // marked as a feature edge or not.
  std::vector<FacePiece> explode() const;

  // All bodies as a STEP file (AP214), in world coordinates. False when there is no body or the
  // file cannot be written.
  bool writeStep(const std::string &path) const;
  // Replaces the bodies by the solids of a STEP file (kind tag 0).
  bool readStep(const std::string &path);
  // The bodies, their tags and the local origin as text that fromString restores exactly (volumes
  // equal to the last bit of the stored geometry).
  std::string toString() const;
  bool fromString(const std::string &text);

  // Why the last operation that failed failed ("" after a success).
  const std::string &lastError() const;

  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace vantry::solid
